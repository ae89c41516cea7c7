// Puts operations to torture, each in a process of its own, and tells of it.
#ifndef VIMBRA_TESTS_TORTURE_HARNESS_HPP
#define VIMBRA_TESTS_TORTURE_HARNESS_HPP

#include <string>
#include <vector>

#include "operation.hpp"

namespace vimbra::tests::torture {

struct Settings {
    size_t stride = 1;   // every so many-th injection
    int patience = 40;   // seconds, for what should come at once
    size_t enough = 20;  // faults
};

struct Outcome {
    size_t calls = 0;     // that the operation makes untouched
    size_t runs = 0;      // with something failing, or killed
    size_t failures = 0;  // calls that were made to fail
    std::vector<std::string> complaints;
};

Outcome Torture(const Operation& operation, const Settings& settings);

}  // namespace vimbra::tests::torture

#endif
