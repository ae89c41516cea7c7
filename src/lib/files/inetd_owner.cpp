#include "lib/files/inetd_owner.hpp"

#include <cerrno>

#include "lib/base/text.hpp"
#include "lib/failure.hpp"
#include "lib/files/inetd.hpp"
#include "lib/files/line_file.hpp"
#include "lib/log.hpp"

using namespace vimbra;

namespace {

// One line of inetd's configuration with another owner. False when it is no complete line.
class ServiceLine {
 public:
    bool Parse(CallSite site, std::string_view line) {
        VLOG_PRINT_AT(site, "achReadBuf : %.*s", VIMBRA_TEXT(line));
        for (size_t i = 0; i < kFields; i++) {
            fields_[i] = NextToken(line, i < kFields - 1 ? " \t" : "]");
            if (fields_[i].empty()) {
                VLOG_ERROR_AT(site, "strtok NULL!");
                return false;
            }
            Log(site, i);
        }
        return true;
    }

    LineNode* WithOwner(const char* owner) const {
        return NewLine({fields_[0], " ", fields_[1], " ", fields_[2], " ", fields_[3], " ", owner,
                        " ", fields_[5], " ", fields_[6], "\n"});
    }

 private:
    static constexpr size_t kFields = 7;

    void Log(CallSite site, size_t field) const {
        constexpr const char* kNames[kFields] = {"pchSerName", "pchSockTyep", "pchProto",
                                                 "pchFlags",   "pchUser",     "pchSerPath",
                                                 "pchArgs"};
        VLOG_PRINT_AT(site, "%s : %.*s", kNames[field], VIMBRA_TEXT(fields_[field]));
    }

    std::string_view fields_[kFields];
};

}  // namespace

bool vimbra::IsServiceOwner(std::string_view name) {
    return !name.empty() && !HasControl(name) && name.find(' ') == std::string_view::npos;
}

s32 ChangeNetServiceOwner(char* pchOwner) {
    const CallSite site = VIMBRA_HERE;
    if (pchOwner == nullptr || !IsServiceOwner(pchOwner)) {
        VLOG_ERROR("the owner is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_GENERAL);
    }
    const CancelGuard guard;
    LineReader reader;
    const Fd old = OpenLines(kInetdPaths, Open::kRead);
    if (!old && errno == ENOENT) {
        VLOG_PRINT("the inetd config file is not existed!");
        return VIMBRA_OWNER_NO_CONFIG;
    }
    if (!old || !reader.Load(old)) {
        VLOG_ERROR("fopen error");
        return VIMBRA_ERR_GENERAL;
    }
    LineList lines;
    std::string_view text;
    while (reader.Next(text)) {
        text = Front(text, text.find('\0'));
        ServiceLine line;
        if (text.starts_with('#') || !line.Parse(site, text)) {
            continue;
        }
        if (!lines.Add(line.WithOwner(pchOwner))) {
            VLOG_ERROR("malloc error");
            return VIMBRA_ERR_GENERAL;
        }
    }
    // The file is looked for anew, and may be made in the first place.
    LineFile file(kInetdPaths, LineFile::How::kRewrite);
    if (!file || !file.Rewrite(lines.First(), Filler::kComment)) {
        VLOG_ERROR("fopen error");
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OWNER_CHANGED;
}

FILE* open_config_file(const char* pchMode) {
    return OpenInetdStream(pchMode);
}
