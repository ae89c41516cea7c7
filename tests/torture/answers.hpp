// What the scripted daemon answers to whom.
#ifndef VIMBRA_TESTS_TORTURE_ANSWERS_HPP
#define VIMBRA_TESTS_TORTURE_ANSWERS_HPP

#include <vimbra/bed.hpp>

namespace vimbra::tests::torture {

void SetAnswers(bed::ScriptedDaemon& daemon);

}  // namespace vimbra::tests::torture

#endif
