#include "tool.hpp"

#include <unistd.h>
#include <vimbra/ipc.h>
#include <vimbra/log.h>

#include <cerrno>
#include <cstring>

namespace ctl {

std::optional<Failure> Tool::Try(const std::function<s32()>& call, std::string_view accepted) {
    TVimbraFailure noted;
    VimbraLastFailure(&noted);  // An older one is not this call's.
    library_.TakeErrors();
    library_.Show(verbose);
    VimbraDebugLevelSet(verbose ? VIMBRA_LEVEL_DEBUG : VIMBRA_LEVEL_ERR);
    const s32 result = call();
    VimbraDebugLevelSet(verbose ? VIMBRA_LEVEL_DEBUG : VIMBRA_LEVEL_NONE);
    VimbraLastFailure(&noted);
    return Judge(result, noted, library_.TakeErrors(), accepted);
}

void Tool::Call(const std::function<s32()>& call, std::string_view accepted) {
    if (auto failure = Try(call, accepted)) {
        throw CommandFailed(std::move(*failure));
    }
}

void Tool::Request(u32 type, const void* body, size_t size) {
    // Untouched without an answer.
    s32 code = VIMBRA_ERR_GENERAL;
    Call(
        [&] { return IpcApiSendAndRecv(type, body, static_cast<s32>(size), &code, sizeof(code)); });
    if (code != VIMBRA_OK) {
        throw CommandFailed(Refused(VIMBRA_ERR_GENERAL, code));
    }
}

void Tool::Show(const std::string& text, const Json& record) {
    const std::string whole = json ? record.Text() : text;
    fprintf(library_.Output(), "%s%s", whole.c_str(), whole.ends_with('\n') ? "" : "\n");
}

bool Tool::ShowLine(const std::string& text, const Json& record) {
    const std::string whole = json ? record.Line() : text;
    fprintf(library_.Output(), "%s\n", whole.c_str());
    return fflush(library_.Output()) == 0;
}

bool Tool::ShowText(const std::string& text) {
    fputs(text.c_str(), library_.Output());
    return fflush(library_.Output()) == 0;
}

int Tool::OutputDescriptor() {
    return fileno(library_.Output());
}

bool Tool::OnTerminal() {
    return isatty(OutputDescriptor()) != 0;
}

Painter Tool::Colours() {
    return Painter(!json && ShowsColours(OutputDescriptor()));
}

void Tool::Done() {
    if (json) {
        Show("", Json{{"result", s32{VIMBRA_OK}}});
    }
}

void Tool::Finish() {
    if (fflush(library_.Output()) != 0 || ferror(library_.Output()) != 0) {
        throw CommandFailed(ExitStatus::kFailed,
                            std::string("the output cannot be written: ") + strerror(errno));
    }
}

}  // namespace ctl
