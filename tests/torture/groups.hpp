// The operations by service.
#ifndef VIMBRA_TESTS_TORTURE_GROUPS_HPP
#define VIMBRA_TESTS_TORTURE_GROUPS_HPP

#include <vector>

#include "operation.hpp"

namespace vimbra::tests::torture {

std::vector<Operation> IfaceOperations();
std::vector<Operation> NotifyOperations();

}  // namespace vimbra::tests::torture

#endif
