#include "results.hpp"

#include <vimbra/common.h>
#include <vimbra/types.h>

#include <sstream>

namespace vimbra::tests::torture {
namespace {

struct Listed {
    const char* function;
    const char* header;
    const char* results;
};

const Listed kListed[] = {
#include "results.inc"
};

const Listed* Find(const std::string& function) {
    for (const Listed& listed : kListed) {
        if (function == listed.function) {
            return &listed;
        }
    }
    return nullptr;
}

// "other" is told in the head of its header: what the transport gives.
bool Fits(long result, const std::string& told) {
    if (told == ">0") {
        return result > 0;
    }
    if (told == "0..255") {
        return result >= 0 && result <= 255;
    }
    if (told == "other") {
        return result == -1 || result == VIMBRA_ERR_SEND || result == VIMBRA_ERR_RECV_TIMEOUT ||
               result > 0;
    }
    return std::to_string(result) == told;
}

}  // namespace

bool IsListed(const Operation& operation, long result) {
    for (const long other : operation.others) {
        if (result == other) {
            return true;
        }
    }
    const Listed* listed =
        operation.isEvent ? nullptr : Find(operation.name.substr(0, operation.name.find(':')));
    std::istringstream results(listed != nullptr ? listed->results : "");
    for (std::string one; results >> one;) {
        if (Fits(result, one)) {
            return true;
        }
    }
    return result == operation.good;
}

std::string HeaderOf(const std::string& function) {
    const Listed* listed = Find(function);
    return listed != nullptr ? listed->header : "";
}

}  // namespace vimbra::tests::torture
