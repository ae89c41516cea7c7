// One request and its reply through the library, against the bare system calls of the same exchange
// with the same answering process. Fails when a ratio is above the bound.
#include <sys/select.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>

#include <string>

#include "answerer.hpp"
#include "pairs.hpp"

namespace {

constexpr double kMostRatio = 1.03;

struct Exchange {
    const char* name;
    u32 type;
    s32 requestSize;
    s32 replySize;
};

constexpr Exchange kRead = {"read 18/456", bench::Answerer::kLongAnswer, 18,
                            bench::Answerer::kLongSize};
constexpr Exchange kSet = {"set 470/4", bench::Answerer::kShortAnswer, 470,
                           bench::Answerer::kShortSize};

// Socket, connect, select, write, select, read, close: the exchange as one would write it down.
bool BareExchange(const Exchange& exchange, const char* request, char* reply) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = bench::DaemonAddress();
    bool done = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout = {60, 0};
    done = done && select(fd + 1, nullptr, &set, nullptr, &timeout) == 1;
    const ssize_t requestSize = static_cast<ssize_t>(sizeof(IpcMsgHead)) + exchange.requestSize;
    done = done && write(fd, request, static_cast<size_t>(requestSize)) == requestSize;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    done = done && select(fd + 1, &set, nullptr, nullptr, &timeout) == 1;
    const ssize_t replySize = static_cast<ssize_t>(sizeof(IpcMsgHead)) + exchange.replySize;
    done = done && read(fd, reply, static_cast<size_t>(replySize)) == replySize;
    close(fd);
    return done;
}

bool LibraryExchange(const Exchange& exchange, const char* body, char* reply) {
    return IpcApiSendAndRecv(exchange.type, body, exchange.requestSize, reply,
                             exchange.replySize) == VIMBRA_OK;
}

bool Measure(const Exchange& exchange) {
    char request[1024] = {};
    char reply[1024] = {};
    const IpcMsgHead head = {exchange.type, static_cast<u32>(exchange.requestSize), 0};
    memcpy(request, &head, sizeof(head));
    return bench::Compare(
        exchange.name, kMostRatio, [&] { return BareExchange(exchange, request, reply); },
        [&] { return LibraryExchange(exchange, request + sizeof(head), reply); });
}

// For strace and allocation counters: so many exchanges and nothing else.
int RunPlain(int count) {
    const char body[18] = {};
    char reply[bench::Answerer::kLongSize];
    for (int i = 0; i < count; i++) {
        if (!LibraryExchange(kRead, body, reply)) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    bench::StayOnOneProcessor();
    const bench::Answerer answerer;
    VimbraDebugLevelSet(VIMBRA_LEVEL_NONE);
    if (argc == 3 && std::string(argv[1]) == "--plain") {
        return RunPlain(atoi(argv[2]));
    }
    const bool read = Measure(kRead);
    const bool set = Measure(kSet);
    return read && set ? 0 : 1;
}
