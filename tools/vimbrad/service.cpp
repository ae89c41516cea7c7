#include "service.hpp"

#include <stdexcept>

#include "log.hpp"

namespace vimbrad {
namespace {

// Whoever asks why was refused a moment ago.
constexpr size_t kRefusalsMax = 64;

void RefuseInFourBytes(const Owed::Send& send, s32 error) {
    const wire::PlainResult refusal{error};
    send(std::as_bytes(std::span(&refusal, 1)));
}

}  // namespace

Owed::~Owed() {
    if (send_) {
        Refuse(default_, ECANCELED, "dropped without an answer");
    }
}

void Owed::Reply(Bytes reply) {
    if (!send_) {
        return;
    }
    if (call_.changes) {
        LogChange("%s: done (%s; by %s)", call_.what.c_str(), call_.values.c_str(),
                  call_.peer.Text().c_str());
    }
    HandOver(reply);
}

void Owed::Refuse(Bytes reply, int error, const char* why) {
    if (!send_) {
        return;
    }
    (call_.changes ? LogRefused : LogWarning)("%s: refused with %d: %s (%s; by %s)",
                                              call_.what.c_str(), error, why, call_.values.c_str(),
                                              call_.peer.Text().c_str());
    registry_.NoteRefusal({call_.peer, call_.what, error, why});
    HandOver(reply);
}

// What a client knows to be done must not be forgotten by a daemon that dies right then.
void Owed::HandOver(Bytes reply) {
    const Send send = std::exchange(send_, nullptr);
    if (call_.changes) {
        registry_.Changed();
    }
    send(reply);
}

void Registry::Add(u32 type, size_t size, const Title& title, Entry entry) {
    if (!operations_[type].try_emplace(size, Operation{title, std::move(entry)}).second) {
        throw std::logic_error("request named twice: " + title.what);
    }
}

void Registry::Dispatch(u32 type, Bytes body, Owed::Send send, const Peer& peer, bool mayWait) {
    const auto variants = operations_.find(type);
    if (variants == operations_.end()) {
        LogWarning("request 0x%04x with %zu bytes: nobody serves it (by %s)", type, body.size(),
                   peer.Text().c_str());
        RefuseInFourBytes(send, ENOSYS);
        return;
    }
    auto operation = variants->second.find(body.size());
    if (operation == variants->second.end()) {
        operation = variants->second.find(kAnySize);
    }
    if (operation == variants->second.end()) {
        LogWarning("%s: a body of %zu bytes is not one of its (by %s)",
                   variants->second.begin()->second.title.what.c_str(), body.size(),
                   peer.Text().c_str());
        RefuseInFourBytes(send, EINVAL);
        return;
    }
    const auto& [title, entry] = operation->second;
    LogDebug("%s", title.what.c_str());
    entry(body,
          std::make_shared<Owed>(
              *this,
              Call{.what = title.what, .peer = peer, .changes = title.changes, .mayWait = mayWait},
              std::move(send)));
}

void Registry::NoteRefusal(Refused refused) {
    if (refusals_.size() == kRefusalsMax) {
        refusals_.pop_front();
    }
    refusals_.push_back(std::move(refused));
}

}  // namespace vimbrad
