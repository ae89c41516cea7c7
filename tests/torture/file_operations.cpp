// What is edited in files: accounts, DNS servers, services of inetd; of both generations.
#include <unistd.h>

#include "ground.hpp"
#include "groups.hpp"

namespace vimbra::tests::torture {

namespace {

constexpr char kPasswd[] = "/etc/passwd";
constexpr char kInetd[] = "/etc/inetd.conf";
constexpr char kInetdElsewhere[] = "/usr/config/system/inetd.conf";
constexpr char kResolv[] = "/etc/resolv.conf";

constexpr char kAccounts[] = "root:x:0:0:::\nguest:hash:5:5:G:/g:/s\nadmin:x:0:0:A:/a:/bin/sh\n";
constexpr char kServices[] =
    "# comment\ntelnet stream tcp nowait root /sbin/telnetd x\na b c d e /f g\n";
constexpr char kServers[] =
    "# comment\n####eth0v6\nnameserver ::1\nnameserver ::2\n"
    "####eth0\nnameserver 1.1.1.1\n####eth1\nnameserver 2.2.2.2\n";

char g_new[] = "new";
char g_guest[] = "guest";
char g_root[] = "root";
char g_password[] = "secret";
char g_hash[] = "$1$abcdefgh$0123456789012345678901";
char g_other[VIMBRA_USER_NAME_SIZE];
char g_salt[VIMBRA_SALT_SIZE];
char g_telnetd[] = "telnetd";
char g_tcp[] = "tcp";
TVimbraServInfo g_service = {g_telnetd, 23, g_tcp, nullptr};
TVimbraDnsAddrInfo g_servers;
TVimbraAddr g_server[2];
u32 g_words[2];

// Files as they are before each call, and inetd, which is to be told.
void Files() {
    static Fake inetd("inetd");
    inetd.Revive();
    setenv("HOME", "/h", 1);
    setenv("SHELL", "/s", 1);
    bed::WriteFile(kPasswd, kAccounts);
    bed::WriteFile(kInetd, kServices);
    bed::WriteFile(kResolv, kServers);
    unlink(kInetdElsewhere);
    rmdir("/usr/config/system");
    g_server[0] = Address("192.0.2.53");
    g_server[1] = Address("192.0.2.54");
    g_words[0] = g_server[0].tV4Addr.s_addr;
}

// The configuration of inetd is read in the one place and written in the other.
void FilesElsewhere() {
    Files();
    unlink(kInetd);
    bed::WriteFile(kInetdElsewhere, "a b c d e /f g\n");
}

void NoAccounts() {
    Files();
    unlink(kPasswd);
}

void FreeServers(TNetDnsParam* list) {
    while (list != nullptr) {
        TNetDnsParam* const next = list->next;
        for (void* block : {static_cast<void*>(list->pchIfaceName), static_cast<void*>(list)}) {
            Injector::GiveBack(block);
            free(block);
        }
        list = next;
    }
}

TNetDnsParam* g_list = nullptr;

void ReadList() {
    Files();
    g_list = ReadFromReslovconf();
}

bool FreeList() {
    FreeServers(g_list);
    g_list = nullptr;
    return true;
}

long Close(FILE* stream) {
    if (stream == nullptr) {
        return 1;
    }
    Injector::GiveBackDescriptor(fileno(stream));
    fclose(stream);
    return 0;
}

}  // namespace

namespace {

std::vector<Operation> AccountHelpers() {
    return {
        {"crypt_make_pw_salt", [] { return crypt_make_pw_salt(g_salt, "md5") != nullptr ? 0 : 1; }},
        {"crypt_make_salt", [] { return crypt_make_salt(g_salt, 4) != 0 ? 0 : 1; }},
        {"i64c", [] { return i64c(0) - '.'; }},
        {"monotonic_us", [] { return monotonic_us() > 0 ? 0 : 1; }},
        {.name = "open_config_file",
         .call = [] { return Close(open_config_file("r")); },
         .prepare = Files,
         .others = {1}},
        {.name = "OpenConfigFile",
         .call = [] { return Close(OpenConfigFile("r")); },
         .prepare = Files,
         .others = {1}},
        {.name = "GetRootUser",
         .call =
             [] {
                 char* name = GetRootUser();
                 const bool isRoot = name != nullptr && strcmp(name, "root") == 0;
                 Injector::GiveBack(name);
                 free(name);
                 return isRoot ? 0 : 1;
             },
         .prepare = Files,
         .others = {1}},
    };
}

}  // namespace

std::vector<Operation> AccountOperations() {
    constexpr char kFiller[] = "a login that is not there and one that cannot be read are the same";
    std::vector<Operation> all = {
        {"VimbraAddNetUser", [] { return VimbraAddNetUser(g_new, g_password); }, Files},
        {"NetAddNetUser", [] { return NetAddNetUser(g_new, g_password); }, Files},
        {"NetAddNetCommonUser", [] { return NetAddNetCommonUser(g_new, g_password); }, Files},
        {"VimbraModifyNetPwd", [] { return VimbraModifyNetPwd(g_guest, g_password); }, Files},
        {"NetModifyNetPwd", [] { return NetModifyNetPwd(g_guest, g_password); }, Files},
        {"VimbraDelNetUser", [] { return VimbraDelNetUser(g_guest); }, Files},
        {"NetDelNetUser", [] { return NetDelNetUser(g_guest); }, Files},
        {.name = "check_user_in_pwd_file",
         .call = [] { return check_user_in_pwd_file(g_guest); },
         .prepare = Files,
         .good = VIMBRA_USER_ONE},
        {"add_user_to_pwd_file", [] { return add_user_to_pwd_file(g_new, g_hash); }, Files},
        {"add_user_to_pwd_file: no file", [] { return add_user_to_pwd_file(g_new, g_hash); },
         NoAccounts},
        {"add_common_user_to_pwd_file", [] { return add_common_user_to_pwd_file(g_new, g_hash); },
         Files},
        {"del_user_from_pwd_file", [] { return del_user_from_pwd_file(g_guest); }, Files},
        {"modify_user_in_pwd_file", [] { return modify_user_in_pwd_file(g_guest, g_hash); }, Files},
        {.name = "IsLastRootUser",
         .call = [] { return IsLastRootUser(g_root, g_other); },
         .prepare = Files,
         .lenient = kFiller},
        {"ChangeNetServiceOwner", [] { return ChangeNetServiceOwner(g_guest); }, Files},
        {.name = "ChangeNetServiceOwner: elsewhere",
         .call = [] { return ChangeNetServiceOwner(g_guest); },
         .prepare = FilesElsewhere,
         .elsewhere = {{kInetdElsewhere, "a b c d guest /f g\n\n"}}},
    };
    for (const Operation& operation : AccountHelpers()) {
        all.push_back(operation);
    }
    return all;
}

std::vector<Operation> DnsOperations() {
    return {
        {"VimbraDNSSet", [] { return VimbraDNSSet(g_eth0, 2, g_server, 2); }, Files},
        {"VimbraDNSSet: none", [] { return VimbraDNSSet(g_eth0, 2, nullptr, 0); }, Files},
        {"NetDNSSetEx", [] { return NetDNSSetEx(0, g_words, 1); }, Files},
        {"VimbraDNSGet", [] { return VimbraDNSGet(&g_servers); }, Files},
        {.name = "ReadFromReslovconf",
         .call =
             [] {
                 TNetDnsParam* list = ReadFromReslovconf();
                 FreeServers(list);
                 return list != nullptr ? 0 : 1;
             },
         .prepare = Files,
         .others = {1}},
        {"SetDnsToList", [] { return SetDnsToList(g_list, g_eth0, g_server, 2); }, ReadList,
         FreeList},
        {"WriteToReslovconf", [] { return WriteToReslovconf(g_list); }, ReadList, FreeList},
        {"WriteToDnsConf", [] { return WriteToDnsConf(g_eth0, g_server, 2); }, Files},
    };
}

std::vector<Operation> ServiceOperations() {
    constexpr char kNothing[] = "0 also when no configuration can be read";
    return {
        {"VimbraServiceStart", [] { return VimbraServiceStart(&g_service); }, Files},
        {.name = "VimbraServiceStart: elsewhere",
         .call = [] { return VimbraServiceStart(&g_service); },
         .prepare = FilesElsewhere,
         .elsewhere = {{kInetdElsewhere,
                        "a b c d e /f g\n#telnetd\n"
                        "telnet\tstream\ttcp\tnowait\troot\t/sbin/telnetd\t/sbin/telnetd -i  \n"}}},
        {.name = "VimbraServiceStop",
         .call = [] { return VimbraServiceStop(g_telnetd); },
         .prepare = Files,
         .lenient = kNothing},
        {"NetServiceStart", [] { return NetServiceStart(g_telnetd, &g_service); }, Files},
        {.name = "NetServiceStop",
         .call = [] { return NetServiceStop(g_telnetd, 23); },
         .prepare = Files,
         .lenient = kNothing},
    };
}

}  // namespace vimbra::tests::torture
