// The library writes its log to standard output, where the tool's own output goes. From now on what
// is written there ends here, and the tool writes to a stream of its own that leads where standard
// output led.
#ifndef VIMBRA_TOOLS_VIMBRACTL_LIBRARY_OUTPUT_HPP
#define VIMBRA_TOOLS_VIMBRACTL_LIBRARY_OUTPUT_HPP

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// One for the whole life of the process: the library's threads write at any time.
class LibraryOutput {
 public:
    // Throws std::system_error.
    LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    // Where standard output led.
    FILE* Output() { return output_; }

    // Shows every message on standard error, each on a line of its own, as it comes.
    void Show(bool show) { show_ = show; }

    // The words of the errors since the last call, without their tags: what went wrong in detail,
    // to be quoted. Why a call failed is not read from them.
    std::vector<std::string> TakeErrors();

 private:
    void Take(std::string_view message);

    FILE* output_ = nullptr;
    std::atomic<bool> show_ = false;
    std::mutex mutex_;
    std::vector<std::string> errors_;
};

}  // namespace ctl

#endif
