// How the scripted daemon treats a request, and where it waits.
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "vimbra/bed.hpp"

namespace vimbra::bed {

// ---- Gate ----------------------------------------------------------------------------------------

struct Gate::State {
    std::mutex lock;
    std::condition_variable changed;
    size_t arrived = 0;
    bool open = false;
};

Gate::Gate() : state_(std::make_shared<State>()) {}

bool Gate::Pass() const {
    std::unique_lock guard(state_->lock);
    ++state_->arrived;
    state_->changed.notify_all();
    if (state_->changed.wait_for(guard, kPatience, [&] { return state_->open; })) {
        return true;
    }
    fprintf(stderr, "vimbra bed: nobody opened a gate\n");
    return false;
}

bool Gate::WaitArrived(size_t count) const {
    std::unique_lock guard(state_->lock);
    return state_->changed.wait_for(guard, kPatience, [&] { return state_->arrived >= count; });
}

size_t Gate::Arrived() const {
    const std::lock_guard guard(state_->lock);
    return state_->arrived;
}

void Gate::Open() const {
    const std::lock_guard guard(state_->lock);
    state_->open = true;
    state_->changed.notify_all();
}

// ---- Answer --------------------------------------------------------------------------------------

Answer Answer::Code(int32_t code) {
    return Body(AsBytes(code));
}

Answer Answer::Body(const Bytes& body) {
    Answer answer;
    answer.body_ = body;
    return answer;
}

Answer Answer::Raw(const Bytes& bytes) {
    Answer answer = Body(bytes);
    answer.framed_ = false;
    return answer;
}

Answer Answer::Nothing() {
    Answer answer;
    answer.act_ = Act::kNothing;
    return answer;
}

Answer Answer::Close() {
    Answer answer;
    answer.act_ = Act::kClose;
    return answer;
}

Answer Answer::CloseUnread() {
    Answer answer;
    answer.act_ = Act::kCloseUnread;
    return answer;
}

Answer Answer::LeaveUnread() {
    Answer answer;
    answer.act_ = Act::kLeaveUnread;
    return answer;
}

Answer Answer::By(std::function<Answer(const Request&)> choose) {
    Answer answer;
    answer.act_ = Act::kChoose;
    answer.choose_ = std::move(choose);
    return answer;
}

Answer Answer::Size(uint32_t size) const {
    Answer answer = *this;
    answer.size_ = size;
    return answer;
}

Answer Answer::Type(uint32_t type) const {
    Answer answer = *this;
    answer.type_ = type;
    return answer;
}

Answer Answer::Flag(int32_t flag) const {
    Answer answer = *this;
    answer.flag_ = flag;
    return answer;
}

Answer Answer::InPieces(std::initializer_list<size_t> cuts) const {
    Answer answer = *this;
    answer.cuts_ = cuts;
    return answer;
}

Answer Answer::After(std::function<void(const Request&)> hook) const {
    Answer answer = *this;
    answer.hook_ = std::move(hook);
    return answer;
}

Answer Answer::Behind(const Gate& gate) const {
    Answer answer = *this;
    answer.gate_ = gate;
    return answer;
}

}  // namespace vimbra::bed
