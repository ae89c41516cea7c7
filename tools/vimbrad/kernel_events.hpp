// What the kernel announces by itself: interfaces and addresses that come, change and go.
#ifndef VIMBRA_TOOLS_VIMBRAD_KERNEL_EVENTS_HPP
#define VIMBRA_TOOLS_VIMBRAD_KERNEL_EVENTS_HPP

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <functional>
#include <initializer_list>

#include "netlink.hpp"
#include "uv.hpp"

namespace vimbrad {

class KernelEvents {
 public:
    // Called from the loop with each announcement, or with null when some were lost and anything
    // may have changed.
    using Handler = std::function<void(nlmsghdr* announcement)>;

    // Throws Refusal.
    KernelEvents(uv_loop_t* loop, std::initializer_list<rtnetlink_groups> groups, Handler handler);
    KernelEvents(const KernelEvents&) = delete;
    KernelEvents& operator=(const KernelEvents&) = delete;

 private:
    void Read();

    Handler handler_;
    NlSocket socket_;
    // Closed before the socket.
    UvHandle<uv_poll_t> poll_;
};

}  // namespace vimbrad

#endif
