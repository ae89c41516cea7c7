#ifndef VIMBRA_TESTS_TORTURE_SELFTEST_HPP
#define VIMBRA_TESTS_TORTURE_SELFTEST_HPP

namespace vimbra::tests::torture {

// Does the torture find what is wrong? Tells what it does not.
bool FaultsAreFound();

}  // namespace vimbra::tests::torture

#endif
