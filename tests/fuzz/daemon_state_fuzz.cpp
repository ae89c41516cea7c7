// What an earlier life of the daemon may have left in its state file: it is taken up, told, saved,
// taken up again and taken back. @BOOT@ in the input stands for the number of this boot, without
// which the file is forgotten.
#include "daemon.hpp"

namespace vimbra::tests {

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    std::string saved;
    {
        Daemon first(WithBoot({reinterpret_cast<const char*>(data), size}));
        Require(first.Ask("{\"ask\":\"status\"}\n").ends_with('\n'));
        first.Pass(6'000);
        saved = first.SavedState();
    }
    Daemon second(saved);
    Require(second.Ask("{\"ask\":\"status\"}\n").ends_with('\n'));
    second.End();
    return 0;
}

}  // namespace vimbra::tests
