// The operations by service.
#ifndef VIMBRA_TESTS_TORTURE_GROUPS_HPP
#define VIMBRA_TESTS_TORTURE_GROUPS_HPP

#include <vector>

#include "operation.hpp"

namespace vimbra::tests::torture {

std::vector<Operation> CoreOperations();
std::vector<Operation> IpcOperations();
std::vector<Operation> ThreadOperations();
std::vector<Operation> ProcessOperations();
std::vector<Operation> IfaceOperations();
std::vector<Operation> RouteOperations();
std::vector<Operation> NotifyOperations();
std::vector<Operation> DhcpcOperations();
std::vector<Operation> PppoeOperations();
std::vector<Operation> NtpOperations();
std::vector<Operation> DiagOperations();
std::vector<Operation> AccountOperations();
std::vector<Operation> DnsOperations();
std::vector<Operation> ServiceOperations();
std::vector<Operation> SystemOperations();

}  // namespace vimbra::tests::torture

#endif
