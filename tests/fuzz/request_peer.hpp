// The other end of the request socket: one thread that serves one connection after the other.
#ifndef VIMBRA_TESTS_FUZZ_REQUEST_PEER_HPP
#define VIMBRA_TESTS_FUZZ_REQUEST_PEER_HPP

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vimbra/types.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <span>
#include <thread>

namespace vimbra::tests {

inline sockaddr_un AddressOf(const char* name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/tmp/%s", name);
    return address;
}

// The bytes of a request, header included, and the connection that wants an answer.
using RequestHandler = std::function<void(std::span<const u8> request, int client)>;

// For as long as the process lives.
inline void ServeRequests(RequestHandler handler) {
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf("api_daemon");
    if (bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(server, 100) != 0) {
        abort();
    }
    std::thread([server, handler = std::move(handler)] {
        for (;;) {
            const int client = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) {
                continue;
            }
            u8 request[4096];
            const ssize_t count = read(client, request, sizeof(request));
            if (count > 0) {
                handler({request, static_cast<size_t>(count)}, client);
            }
            close(client);
        }
    }).detach();
}

}  // namespace vimbra::tests

#endif
