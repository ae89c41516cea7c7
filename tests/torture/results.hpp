// What the headers list as results.
#ifndef VIMBRA_TESTS_TORTURE_RESULTS_HPP
#define VIMBRA_TESTS_TORTURE_RESULTS_HPP

#include <string>

#include "operation.hpp"

namespace vimbra::tests::torture {

bool IsListed(const Operation& operation, long result);

// The header that declares a function, or nothing.
std::string HeaderOf(const std::string& function);

}  // namespace vimbra::tests::torture

#endif
