// torture [--stride N] [--patience SECONDS] [--operation NAME] [GROUP...]
// torture --groups | --selftest | --complete INTERFACE
//
// Lets every call that the library makes fail in turn, for each operation of the groups (of all
// without one), and prints what it did. Fails if there is a fault, or nothing to do. Or lists the
// groups; or looks whether faults are found; or whether every function of a list is in the table.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>

#include "ground.hpp"
#include "harness.hpp"
#include "results.hpp"
#include "selftest.hpp"

using namespace vimbra::tests::torture;

namespace {

struct Arguments {
    Settings settings;
    std::string operation;
    std::vector<std::string> groups;
};

bool Parse(int count, char** argv, Arguments& arguments) {
    for (int i = 1; i < count; i++) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < count;
        if (argument == "--stride" && hasValue) {
            arguments.settings.stride = strtoul(argv[++i], nullptr, 10);
        } else if (argument == "--patience" && hasValue) {
            arguments.settings.patience = atoi(argv[++i]);
        } else if (argument == "--operation" && hasValue) {
            arguments.operation = argv[++i];
        } else if (argument.rfind("--", 0) == 0) {
            return false;
        } else {
            arguments.groups.push_back(argument);
        }
    }
    return arguments.settings.stride > 0;
}

bool IsAskedFor(const Arguments& arguments, const Group& group) {
    for (const std::string& name : arguments.groups) {
        if (name == group.name) {
            return true;
        }
    }
    return arguments.groups.empty();
}

// One line of the table; false if there is a fault.
bool Report(const Operation& operation, const Settings& settings) {
    const Outcome outcome = Torture(operation, settings);
    const bool isGood = outcome.complaints.empty();
    printf("%-44s %5zu %6zu %8zu  %s\n", operation.name.c_str(), outcome.calls, outcome.runs,
           outcome.failures, isGood ? "passed" : "FAILED");
    for (const std::string& complaint : outcome.complaints) {
        printf("    %s\n", complaint.c_str());
    }
    fflush(stdout);
    return isGood;
}

bool ReportAll(const Arguments& arguments) {
    bool isGood = true;
    size_t done = 0;
    for (const Group& group : AllGroups()) {
        for (const Operation& operation : group.operations) {
            if (IsAskedFor(arguments, group) &&
                (arguments.operation.empty() || arguments.operation == operation.name)) {
                isGood &= Report(operation, arguments.settings);
                done++;
            }
        }
    }
    return isGood && done > 0;
}

int List() {
    for (const Group& group : AllGroups()) {
        printf("%s\n", group.name);
    }
    return 0;
}

// Functions are in the table, or left out for a reason; not both, and nothing else is.
int Compare(const char* path) {
    std::set<std::string> missing;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (!HeaderOf(line).empty()) {
            missing.insert(line);
        }
    }
    bool isGood = missing.size() > 200;
    std::set<std::string> left;
    for (const LeftOut& one : AllLeftOut()) {
        if (missing.erase(one.name) == 0) {
            printf("left out, but no function: %s\n", one.name);
            isGood = false;
        }
        left.insert(one.name);
    }
    for (const Group& group : AllGroups()) {
        for (const Operation& operation : group.operations) {
            missing.erase(operation.name);
            const std::string function = operation.name.substr(0, operation.name.find(':'));
            if (HeaderOf(function).empty() || left.contains(function)) {
                printf("no function, or left out: %s\n", operation.name.c_str());
                isGood = false;
            }
        }
    }
    for (const std::string& name : missing) {
        printf("not in the table: %s\n", name.c_str());
    }
    return isGood && missing.empty() ? 0 : 1;
}

}  // namespace

int main(int count, char** argv) {
    const std::string first = count > 1 ? argv[1] : "";
    if (first == "--wait") {
        BeFake(argv[0]);
    }
    if (first == "--groups") {
        return List();
    }
    if (first == "--selftest") {
        return FaultsAreFound() ? 0 : 1;
    }
    if (first == "--complete" && count == 3) {
        return Compare(argv[2]);
    }
    Arguments arguments;
    if (!Parse(count, argv, arguments)) {
        fprintf(stderr,
                "torture [--stride N] [--patience SECONDS] [--operation NAME] [GROUP...]\n"
                "torture --groups | --selftest | --complete INTERFACE\n");
        return 2;
    }
    return ReportAll(arguments) ? 0 : 1;
}
