// Waiting, descriptors, threads, files and sockets.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "internal.hpp"
#include "vimbra/bed.hpp"

namespace vimbra::bed {
namespace {

// The name of each of the bed's threads, by which ThreadNames knows them.
constexpr const char* kThreadName = "vimbra-bed";

// What belongs to the bed. Threads are started, and descriptors taken, under a lock, so that who
// counts never meets one that has not been entered yet. A start lasts until the thread has run: threads
// that close a descriptor do not wait for it, or they would pile up on a slow machine.
struct Registry {
    std::mutex startLock;
    std::mutex lock;
    std::set<int> descriptors;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

std::vector<std::string> Entries(const char* path) {
    std::vector<std::string> names;
    if (DIR* directory = opendir(path)) {
        while (const dirent* entry = readdir(directory)) {
            if (entry->d_name[0] != '.') {
                names.emplace_back(entry->d_name);
            }
        }
        closedir(directory);
    }
    return names;
}

// The kernel's list of threads breaks off at one that ends while it is being read; the next reading
// no longer meets that one. Two alike are true.
std::vector<std::string> Tasks() {
    std::vector<std::string> before;
    std::vector<std::string> now = Entries("/proc/self/task");
    while (now != before) {
        before = std::move(now);
        now = Entries("/proc/self/task");
    }
    return now;
}

// A sanitizer starts a thread of its own with the program's first one: it is brought about before
// anything is counted.
void WakeHelperThreads() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::string path;
        std::thread([&] { path = "/proc/self/task/" + std::to_string(gettid()); }).join();
        WaitFor([&] { return access(path.c_str(), F_OK) != 0; });
    });
}

}  // namespace

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
    using std::chrono::milliseconds;
    const auto begin = std::chrono::steady_clock::now();
    while (!condition()) {
        const auto waited =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
        if (waited >= patience) {
            return condition();
        }
        // Less often when it takes long: asking costs others their time.
        std::this_thread::sleep_for(std::clamp(waited / 16, milliseconds(1), milliseconds(20)));
    }
    return true;
}

std::map<int, std::string> OpenDescriptors() {
    const std::lock_guard guard(TheRegistry().lock);
    std::map<int, std::string> open;
    for (const std::string& name : Entries("/proc/self/fd")) {
        const int number = std::stoi(name);
        if (TheRegistry().descriptors.contains(number)) {
            continue;
        }
        char target[512];
        const ssize_t length = readlink(("/proc/self/fd/" + name).c_str(), target, sizeof target);
        // The descriptor that the list was read with is no longer there.
        if (length > 0) {
            open[number] = std::string(target, static_cast<size_t>(length));
        }
    }
    return open;
}

std::vector<std::string> ThreadNames() {
    WakeHelperThreads();
    const std::lock_guard guard(TheRegistry().startLock);
    std::vector<std::string> names;
    for (const std::string& task : Tasks()) {
        std::string name = ReadFile("/proc/self/task/" + task + "/comm");
        if (!name.empty() && name.back() == '\n') {
            name.pop_back();
        }
        // An empty one has just ended.
        if (!name.empty() && name != kThreadName) {
            names.push_back(std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

size_t Threads() {
    return ThreadNames().size();
}

void WriteFile(const std::string& path, std::string_view text) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0755);
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

namespace internal {

Descriptor::Descriptor(int number) : number_(number) {
    if (number >= 0) {
        const std::lock_guard guard(TheRegistry().lock);
        TheRegistry().descriptors.insert(number);
    }
}

Descriptor Descriptor::Take(const std::function<int()>& open) {
    const std::lock_guard guard(TheRegistry().lock);
    Descriptor taken;
    taken.number_ = open();
    if (taken.number_ >= 0) {
        TheRegistry().descriptors.insert(taken.number_);
    }
    return taken;
}

void Descriptor::Reset() {
    if (number_ >= 0) {
        const std::lock_guard guard(TheRegistry().lock);
        TheRegistry().descriptors.erase(number_);
        close(number_);
        number_ = -1;
    }
}

StopPipe::StopPipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    reading = Descriptor(ends[0]);
    writing = Descriptor(ends[1]);
}

std::thread StartThread(std::function<void()> body) {
    const std::lock_guard guard(TheRegistry().startLock);
    std::mutex lock;
    std::condition_variable told;
    bool named = false;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread([&, body = std::move(body)] {
        pthread_setname_np(pthread_self(), kThreadName);
        {
            const std::lock_guard inner(lock);
            named = true;
            told.notify_one();
        }
        body();
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::unique_lock waiting(lock);
    told.wait(waiting, [&] { return named; });
    return thread;
}

namespace {

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::length_error("socket name too long: " + path);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

}  // namespace

Descriptor ConnectSocket(int type, const std::string& path) {
    const sockaddr_un address = AddressOf(path);
    Descriptor client(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (client.Get() >= 0 &&
        connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        client.Reset();
        errno = error;
    }
    return client;
}

Descriptor BindSocket(int type, const std::string& path) {
    if (ConnectSocket(type, path).Get() >= 0) {
        throw std::runtime_error(path + " is served already: run this under vimbra-sandbox");
    }
    unlink(path.c_str());
    const sockaddr_un address = AddressOf(path);
    Descriptor server(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (server.Get() < 0 ||
        bind(server.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot serve " + path);
    }
    return server;
}

Descriptor AcceptSocket(int listening) {
    return Descriptor::Take([&] { return accept4(listening, nullptr, nullptr, SOCK_CLOEXEC); });
}

bool SendAll(int descriptor, const void* bytes, size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = send(descriptor, next, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        next += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool AwaitRead(int descriptor, int stop) {
    bool read = false;
    WaitFor([&] {
        int unread = 0;
        read = ioctl(descriptor, TIOCOUTQ, &unread) == 0 && unread == 0;
        pollfd watched[2] = {{descriptor, 0, 0}, {stop, POLLIN, 0}};
        poll(watched, stop >= 0 ? 2 : 1, 0);
        // Before it closed it may have read all: what it left unread is an error.
        const bool closed = (watched[0].revents & (POLLHUP | POLLERR)) != 0;
        if (closed) {
            read = (watched[0].revents & POLLERR) == 0;
        }
        return read || closed || watched[1].revents != 0;
    });
    return read;
}

std::string SocketPath(std::string_view name) {
    return "/tmp/" + std::string(name);
}

}  // namespace internal
}  // namespace vimbra::bed
