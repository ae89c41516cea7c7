#include "kernel_events.hpp"

#include <netlink/errno.h>

#include <utility>

#include "log.hpp"

namespace vimbrad {

KernelEvents::KernelEvents(uv_loop_t* loop, std::initializer_list<rtnetlink_groups> groups,
                           Handler handler)
    : handler_(std::move(handler)), socket_(Allocated<NlSocket>(nl_socket_alloc())) {
    const auto check = [](int result) {
        if (result < 0) {
            throw Refusal(Netlink::ErrnoOf(result), nl_geterror(result));
        }
    };
    nl_sock* raw = socket_.get();
    nl_socket_disable_seq_check(raw);
    check(nl_socket_modify_cb(
        raw, NL_CB_VALID, NL_CB_CUSTOM,
        [](nl_msg* message, void* self) {
            static_cast<KernelEvents*>(self)->handler_(nlmsg_hdr(message));
            return static_cast<int>(NL_OK);
        },
        this));
    check(nl_connect(raw, NETLINK_ROUTE));
    check(nl_socket_set_nonblocking(raw));
    for (const rtnetlink_groups each : groups) {
        check(nl_socket_add_membership(raw, each));
    }

    poll_ = MakePoll(loop, nl_socket_get_fd(raw), this);
    UvCheck(uv_poll_start(
                poll_.get(), UV_READABLE,
                [](uv_poll_t* poll, int, int) { static_cast<KernelEvents*>(poll->data)->Read(); }),
            "poll");
}

void KernelEvents::Read() {
    const int result = nl_recvmsgs_default(socket_.get());
    if (result >= 0 || result == -NLE_AGAIN) {
        return;
    }
    // A burst that was too much for the socket's buffer.
    LogDebug("announcements of the kernel were lost: %s", nl_geterror(result));
    handler_(nullptr);
}

}  // namespace vimbrad
