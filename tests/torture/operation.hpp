// What is put to torture: each call of the library with what has to be there before, and events.
#ifndef VIMBRA_TESTS_TORTURE_OPERATION_HPP
#define VIMBRA_TESTS_TORTURE_OPERATION_HPP

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vimbra::tests::torture {

struct Operation {
    std::string name;  // the function; of an event: the one that starts the service, and what comes
    std::function<long()> call;
    // Before each call, and after it: together they leave things as they were. False where that
    // cannot be done.
    std::function<void()> prepare = {};
    std::function<bool()> undo = {};
    // What the call returns when nothing fails.
    long good = 0;
    // Looks at what a call has made that returned this; a complaint, or nothing.
    std::function<std::string()> proof = {};
    // Results that its header tells in words.
    std::vector<long> others = {};
    // What else an edited file may hold, by its path, while all others are as before.
    std::map<std::string, std::string> elsewhere = {};
    // A good result may cover a failure: the header says so, and here is why.
    const char* lenient = nullptr;
    // What has failed may not be undone in this process: the header says so, and here is why.
    const char* spoils = nullptr;
    bool initialised = true;
    // Does its work once for the process: each run has one of its own.
    bool isOnce = false;
    bool isEvent = false;
};

struct Group {
    const char* name;
    std::vector<Operation> operations;
};

std::vector<Group> AllGroups();

// Names that are not in the groups, and why.
struct LeftOut {
    const char* name;
    const char* why;
};
const std::vector<LeftOut>& AllLeftOut();

}  // namespace vimbra::tests::torture

#endif
