// The library logs to standard output, where the tool's own output goes. This keeps the two apart:
// while it lives, what is written to standard output by others ends here, and the tool writes to a
// stream of its own that leads where standard output led.
#ifndef VIMBRA_TOOLS_VIMBRACTL_LIBRARY_LOG_HPP
#define VIMBRA_TOOLS_VIMBRACTL_LIBRARY_LOG_HPP

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ctl {

class LibraryLog {
 public:
    // Throws std::system_error.
    LibraryLog();
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // Where standard output led.
    FILE* Output() { return output_; }

    // Shows every message on standard error, each on a line of its own, as it comes.
    void Show(bool show) { show_ = show; }

    // The error texts since the last call, without their tags.
    std::vector<std::string> TakeErrors();

 private:
    // Reads what is there; the lock is held.
    void Drain();
    void Handle(std::string_view message);
    // Listeners log from threads of their own, at any time: somebody has to read.
    void Run();

    FILE* output_ = nullptr;
    int reading_ = -1;
    std::atomic<bool> show_ = false;
    bool ended_ = false;
    std::mutex mutex_;
    std::vector<std::string> errors_;
    std::thread reader_;
};

}  // namespace ctl

#endif
