// Ownership of libuv handles: closed by their owner, freed by the loop once it has let go of them.
#ifndef VIMBRA_TOOLS_VIMBRAD_UV_HPP
#define VIMBRA_TOOLS_VIMBRAD_UV_HPP

#include <uv.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace vimbrad {

template <class Handle>
struct CloseHandle {
    void operator()(Handle* handle) const {
        uv_close(reinterpret_cast<uv_handle_t*>(handle),
                 [](uv_handle_t* closed) { delete reinterpret_cast<Handle*>(closed); });
    }
};

// An initialised handle. Resetting it ends its callbacks at once.
template <class Handle>
using UvHandle = std::unique_ptr<Handle, CloseHandle<Handle>>;

inline void UvCheck(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + uv_strerror(result));
    }
}

// Makes a handle and initialises it; one whose initialisation failed must be freed, not closed.
template <class Handle, class Init>
UvHandle<Handle> MakeHandle(Init init, const char* what) {
    auto raw = std::make_unique<Handle>();
    UvCheck(init(raw.get()), what);
    return UvHandle<Handle>(raw.release());
}

inline UvHandle<uv_timer_t> MakeTimer(uv_loop_t* loop, void* data) {
    auto timer = MakeHandle<uv_timer_t>(
        [loop](uv_timer_t* raw) { return uv_timer_init(loop, raw); }, "timer");
    timer->data = data;
    return timer;
}

inline UvHandle<uv_pipe_t> MakePipe(uv_loop_t* loop, void* data) {
    auto pipe = MakeHandle<uv_pipe_t>([loop](uv_pipe_t* raw) { return uv_pipe_init(loop, raw, 0); },
                                      "pipe");
    pipe->data = data;
    return pipe;
}

// Watches a descriptor, which its owner closes after the handle.
inline UvHandle<uv_poll_t> MakePoll(uv_loop_t* loop, int fd, void* data) {
    auto poll = MakeHandle<uv_poll_t>(
        [loop, fd](uv_poll_t* raw) { return uv_poll_init(loop, raw, fd); }, "poll");
    poll->data = data;
    return poll;
}

template <class Handle>
uv_stream_t* AsStream(const UvHandle<Handle>& handle) {
    return reinterpret_cast<uv_stream_t*>(handle.get());
}

}  // namespace vimbrad

#endif
