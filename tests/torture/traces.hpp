// What operations leave that is neither memory nor a descriptor: files and semaphores.
#ifndef VIMBRA_TESTS_TORTURE_TRACES_HPP
#define VIMBRA_TESTS_TORTURE_TRACES_HPP

#include <map>
#include <string>

namespace vimbra::tests::torture {

// By path; the salt of a hash, which is another each time, is left out.
using Contents = std::map<std::string, std::string>;

Contents FilesNow();

// The new content before a longer old one has been cut off.
std::string Uncut(const std::string& path, const std::string& before, const std::string& after);

// Those that keep starts apart are free when none is under way: taken, the next start would wait for
// ever, above one, two would pass at a time. What is wrong with them, or nothing.
std::string WrongSemaphore();

}  // namespace vimbra::tests::torture

#endif
