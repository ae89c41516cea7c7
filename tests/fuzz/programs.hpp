// The programs that a daemon under a fuzzer believes to run: none does. They write and end as a
// target likes.
#ifndef VIMBRA_TESTS_FUZZ_PROGRAMS_HPP
#define VIMBRA_TESTS_FUZZ_PROGRAMS_HPP

#include <string>
#include <string_view>

namespace vimbra::tests {

// One may go with anything that is called here: looked for by number each time.
size_t ProgramCount();
// Its words, separated by blanks.
std::string ProgramCommand(size_t index);
void ProgramWrites(size_t index, std::string_view bytes);
void ProgramEnds(size_t index, int status, int signal);

}  // namespace vimbra::tests

#endif
