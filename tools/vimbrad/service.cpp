#include "service.hpp"

#include <stdexcept>

#include "log.hpp"

namespace vimbrad {
namespace {

void RefuseInFourBytes(const Owed::Send& send, s32 error) {
    const wire::PlainResult refusal{error};
    send(std::as_bytes(std::span(&refusal, 1)));
}

}  // namespace

Owed::~Owed() {
    if (!send_) {
        return;
    }
    LogRefusal(ECANCELED, "dropped without an answer");
    Reply(default_);
}

void Owed::Reply(Bytes reply) {
    if (const Send send = std::exchange(send_, nullptr)) {
        send(reply);
    }
}

void Owed::LogRefusal(int error, const char* why) const {
    LogWarning("%s: refused with %d: %s", what_.c_str(), error, why);
}

void Registry::Add(u32 type, size_t size, const char* what, Entry entry) {
    if (!operations_[type].try_emplace(size, Operation{what, std::move(entry)}).second) {
        throw std::logic_error(std::string("request named twice: ") + what);
    }
}

void Registry::Dispatch(u32 type, Bytes body, Owed::Send send) {
    const auto variants = operations_.find(type);
    if (variants == operations_.end()) {
        LogWarning("request 0x%04x with %zu bytes: nobody serves it", type, body.size());
        RefuseInFourBytes(send, ENOSYS);
        return;
    }
    auto operation = variants->second.find(body.size());
    if (operation == variants->second.end()) {
        operation = variants->second.find(kAnySize);
    }
    if (operation == variants->second.end()) {
        LogWarning("%s: a body of %zu bytes is not one of its",
                   variants->second.begin()->second.what.c_str(), body.size());
        RefuseInFourBytes(send, EINVAL);
        return;
    }
    LogDebug("%s", operation->second.what.c_str());
    operation->second.entry(body, std::make_shared<Owed>(std::move(send), operation->second.what));
}

}  // namespace vimbrad
