// Tells whoever started the daemon how it is: a service manager by a datagram to the socket that
// NOTIFY_SOCKET names, a supervisor by a line on a descriptor of its choice.
#ifndef VIMBRA_TOOLS_VIMBRAD_READINESS_HPP
#define VIMBRA_TOOLS_VIMBRAD_READINESS_HPP

namespace vimbrad {

class Readiness {
 public:
    // -1 is no descriptor; another one is written to once, and closed.
    explicit Readiness(int fd) : fd_(fd) {}

    void TellReady();
    void TellStopping();

 private:
    int fd_;
};

}  // namespace vimbrad

#endif
