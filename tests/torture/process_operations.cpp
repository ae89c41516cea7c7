// Programs, processes and texts.
#include <signal.h>
#include <unistd.h>

#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

constexpr long kNumber = 12;

char g_proc[] = "/tmp/proc/";
char g_daemon[] = "someone";
char g_word[] = "once";
char g_except[] = "none";
char g_true[] = "true";
char* g_argv[] = {g_true, nullptr};
char g_output[256];
char* g_words[8];
u8 g_mac[6];
u32 g_mask;
u32 g_bits;

// A directory of processes with one that is to be found.
void Processes() {
    bed::WriteFile("/tmp/proc/12/status", "Name:\tsomeone\nUmask: 0\n");
    bed::WriteFile("/tmp/proc/12/cmdline", std::string("someone\0at\0once\0", 16));
    bed::WriteFile("/tmp/proc/3/status", "Name:\tnobody\n");
    bed::WriteFile("/tmp/proc/3/cmdline", std::string("nobody\0", 7));
}

}  // namespace

namespace {

std::vector<Operation> Searches() {
    return {
        {.name = "GetServicePid",
         .call = [] { return GetServicePid(g_proc, g_daemon); },
         .prepare = Processes,
         .good = kNumber},
        {.name = "GetServicePidFromCmdline",
         .call = [] { return GetServicePidFromCmdline(g_proc, g_daemon, g_word); },
         .prepare = Processes,
         .good = kNumber},
        {.name = "GetServicePidFromCmdline2",
         .call = [] { return GetServicePidFromCmdline2(g_proc, g_daemon, g_word, g_except); },
         .prepare = Processes,
         .good = kNumber},
        {.name = "CheckCmdByPid",
         .call = [] { return CheckCmdByPid(getpid(), "torture"); },
         .good = 1},
    };
}

std::vector<Operation> Programs() {
    return {
        {"VimbraExecShellProcess", [] { return VimbraExecShellProcess("true", g_argv, nullptr); }},
        {"VimbraExecShellPrcPipe",
         [] {
             s32 length;
             return VimbraExecShellPrcPipe("true", g_argv, g_output, sizeof(g_output), &length);
         }},
        {"ExecCmd",
         [] {
             char command[] = "true";
             return ExecCmd(command, sizeof(command), 0);
         }},
        {"VimbraExecCmdAndGetOutput",
         [] {
             char command[] = "echo words";
             return VimbraExecCmdAndGetOutput(command, sizeof(command), g_output, sizeof(g_output));
         }},
        {"NewProcessSafe",
         [] {
             NewProcessSafe();
             return 0;
         }},
        {"CloseInheritFatherProcessFd",
         [] {
             CloseInheritFatherProcessFd(1000);
             return 0;
         }},
    };
}

std::vector<Operation> Conversions() {
    return {
        {"VimbraBufToArgv",
         [] {
             char text[] = "one two three";
             return VimbraBufToArgv(text, g_words, 7, sizeof(text), ' ');
         }},
        {"VimbraFindStrMatchHead",
         [] {
             char text[] = "ip=10.0.0.1";
             char head[] = "ip";
             return VimbraFindStrMatchHead(text, head, '=', g_output, 100);
         }},
        {"StrToU8WitchoutSepchar",
         [] {
             char text[] = "00:11:22:33:44:55";
             return StrToU8WitchoutSepchar(text, ':', reinterpret_cast<char*>(g_mac), 6);
         }},
        {"MaskConvertIpv4",
         [] {
             g_mask = Word("255.255.255.0");
             return MaskConvertIpv4(&g_mask, &g_bits, 0);
         }},
    };
}

}  // namespace

std::vector<Operation> ProcessOperations() {
    std::vector<Operation> all;
    for (const auto& some : {Programs(), Conversions(), Searches()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace vimbra::tests::torture
