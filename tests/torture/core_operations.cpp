// What all services rest on: beginning, log, transport, checks, threads, queues, semaphores.
#include <net/if.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ground.hpp"
#include "groups.hpp"

extern "C" int torture_select(int count, fd_set* reading, fd_set* writing, fd_set* excepted,
                              timeval* timeout);

namespace vimbra::tests::torture {

namespace {

u32 g_reply;
u32 g_word;
u8 g_mac[6];
char g_text[256];
char g_interface[16] = "lo";
TVimbraFailure g_failure;

// ---- A socket and who listens -------------------------------------------------------------------

int g_socket = -1;
int g_ends[2] = {-1, -1};
sockaddr_un g_address;
socklen_t g_length;

void OpenSocket() {
    g_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

// A call that fails may have closed it.
bool CloseSocket() {
    close(g_socket);
    unlink("/tmp/served");
    return true;
}

void OpenPair() {
    static_cast<void>(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_ends) == 0);
}

bool ClosePair() {
    close(g_ends[0]);
    close(g_ends[1]);
    return true;
}

// ---- Threads ------------------------------------------------------------------------------------

char g_name[] = "tortured";
pthread_t g_thread;

// Until the other end of the pair is closed.
void Wait(void*) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(g_ends[0], &set);
    torture_select(g_ends[0] + 1, &set, nullptr, nullptr, nullptr);
}

void Nothing(void*) {}

long Begin(pthread_t (*spawn)(char*, void (*)(void*), void*, int, int, int)) {
    g_thread = spawn(g_name, Nothing, nullptr, 0x20000, 0, 5);
    return g_thread != 0 ? 0 : 1;
}

void Spawn() {
    OpenPair();
    g_thread = ThreadSpawn(g_name, Wait, nullptr, 0x20000, 0, 5);
    Injector::WaitQuiet();
}

void SpawnShort() {
    g_thread = ThreadSpawn(g_name, Nothing, nullptr, 0x20000, 0, 5);
}

bool Join() {
    if (g_thread != 0) {
        ThreadWait(g_thread);
    }
    g_thread = 0;
    return true;
}

void LetEnd() {
    shutdown(g_ends[1], SHUT_RDWR);
}

bool EndAndJoin() {
    LetEnd();
    Join();
    return ClosePair();
}

bool EndAndDetach() {
    LetEnd();
    ThreadDetach(g_thread);
    Injector::WaitThreads(0);
    return ClosePair();
}

// ---- Queues, lists, semaphores ------------------------------------------------------------------

queue_t g_queue;
GList* g_list;
int g_semaphore = -1;
int g_data;

queue_entry_t Entry() {
    return static_cast<queue_entry_t>(calloc(1, sizeof(struct queue_entry)));
}

void MakeQueue() {
    g_queue = queue_create();
}

bool DestroyQueue() {
    queue_destroy(g_queue);
    return true;
}

void MakeSemaphore() {
    g_semaphore = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    set_semvalue(g_semaphore);
}

bool RemoveSemaphore() {
    semctl(g_semaphore, 0, IPC_RMID);
    return true;
}

void Taken() {
    MakeSemaphore();
    semaphore_p(g_semaphore);
}

template <typename Call>
std::function<long()> Done(const Call& call) {
    return [call] {
        call();
        return 0L;
    };
}

std::vector<Operation> Beginnings() {
    return {
        {.name = "VimbraInit",
         .call = [] { return VimbraInit(); },
         .initialised = false,
         .isOnce = true},
        {.name = "NetInit", .call = [] { return NetInit(); }, .initialised = false, .isOnce = true},
        {.name = "DhcpcInit", .call = Done(DhcpcInit), .initialised = false, .isOnce = true},
        {.name = "IpConflictCheckInit",
         .call = Done(IpConflictCheckInit),
         .initialised = false,
         .isOnce = true},
        {.name = "PingInit", .call = Done(PingInit), .initialised = false, .isOnce = true},
        {.name = "TracerouteInit",
         .call = Done(TracerouteInit),
         .initialised = false,
         .isOnce = true},
        {.name = "PppoeInit", .call = Done(PppoeInit), .initialised = false, .isOnce = true},
        {.name = "ServiceInit", .call = Done(ServiceInit), .initialised = false, .isOnce = true},
        {.name = "RouterAdvertiseInit",
         .call = Done(RouterAdvertiseInit),
         .initialised = false,
         .isOnce = true},
        {"VimbraQueryVersion", [] { return VimbraQueryVersion(g_text, sizeof(g_text)); }},
        {"NetQueryVersion", [] { return NetQueryVersion(g_text, sizeof(g_text)); }},
        {"VimbraLogSwitch", [] { return VimbraLogSwitch(5); }},
        {"NetLogSwitch", [] { return NetLogSwitch(5); }},
    };
}

std::vector<Operation> Interfaces() {
    return {
        {"VimbraIfaceShutdown", [] { return VimbraIfaceShutdown(g_interface); }},
        {"VimbraIfaceNoShutdown", [] { return VimbraIfaceNoShutdown(g_interface); }},
        {"VimbraGetIfaceState", [] { return VimbraGetIfaceState(g_interface, &g_word); }},
        // There is no eth0 here: refused by the system, in the same way each time.
        {.name = "NetInterfaceShutdown",
         .call = [] { return NetInterfaceShutdown(0); },
         .good = -1},
        {.name = "NetInterfaceNoShutdown",
         .call = [] { return NetInterfaceNoShutdown(0); },
         .good = -1},
        {.name = "NetGetEthState", .call = [] { return NetGetEthState(0, &g_word); }, .good = -1},
        {"VimbraSetDscp", [] { return VimbraSetDscp(2, g_socket, 10); },
         [] { g_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }, CloseSocket},
        {"VimbraCheckIsSameNet",
         [] { return VimbraCheckIsSameNet(Address("192.0.2.1"), 24, Address("192.0.2.2")); }},
        {"NetCheckTheSameNet",
         [] { return NetCheckTheSameNet(Word("192.0.2.1"), 24, Word("192.0.2.2")); }},
        {"check_mask", [] { return check_mask(Word("255.255.255.0")); }},
        {.name = "check_ip", .call = [] { return check_ip(Word("192.0.2.1")); }, .good = 1303},
        {"check_ip_mask_gateway_the_same_net",
         [] {
             return check_ip_mask_gateway_the_same_net(Word("192.0.2.1"), Word("255.255.255.0"),
                                                       Word("192.0.2.2"));
         }},
        {"check_intranet_ip",
         [] { return check_intranet_ip(Word("192.0.2.1"), Word("255.255.255.0")); }},
        {"interface_name", [] { return interface_name(0, g_text, 16); }},
        {"SocketIoctl",
         [] {
             ifreq request = {};
             strcpy(request.ifr_name, "lo");
             return SocketIoctl(SIOCGIFFLAGS, reinterpret_cast<char*>(&request));
         }},
        {"IfethGetFlags", [] { return IfethGetFlags(g_interface, &g_word); }},
        {"IfethSetFlags", [] { return IfethSetFlags(g_interface, IFF_UP); }},
        {"IfethGetLineStatus", [] { return IfethGetLineStatus(g_interface, &g_word); }},
        {"IfethGetHwAddr", [] { return IfethGetHwAddr(g_interface, g_mac, nullptr); }},
        {"IfethGetIpAddr",
         [] {
             in_addr address;
             return IfethGetIpAddr(g_interface, &address);
         },
         [] { VimbraIfaceNoShutdown(g_interface); }},
    };
}

std::vector<Operation> Threads() {
    return {
        {.name = "ThreadSpawn",
         .call = [] { return Begin(ThreadSpawn); },
         .undo = Join,
         .others = {1}},
        {.name = "ThreadSpawnDeatched",
         .call = [] { return Begin(ThreadSpawnDeatched); },
         .others = {1}},
        {"ThreadYield", Done(ThreadYield)},
        {"ThreadWait",
         [] {
             const long result = ThreadWait(g_thread) == nullptr ? 0 : 1;
             g_thread = 0;
             return result;
         },
         SpawnShort, Join},
        {"ThreadKill", [] { return ThreadKill(g_thread); }, Spawn, EndAndJoin},
        {"ThreadDetach", [] { return ThreadDetach(g_thread); }, Spawn, EndAndDetach},
        {"ThreadDelay", Done([] { ThreadDelay(1); })},
        {"ThreadGetId", [] { return ThreadGetId() != 0 ? 0 : 1; }},
        {.name = "ThreadGetPriority",
         .call = [] { return ThreadGetPriority(g_thread); },
         .prepare = Spawn,
         .undo = EndAndJoin,
         .others = {-1}},
        {.name = "ThreadSuspend", .call = [] { return ThreadSuspend(pthread_self()); }, .good = -1},
        {.name = "ThreadResume", .call = [] { return ThreadResume(pthread_self()); }, .good = -1},
        {.name = "ThreadAdjustPriority",
         .call = [] { return ThreadAdjustPriority(pthread_self(), 1); },
         .good = -1},
        {"ThreadSetCleanup", Done([] { ThreadSetCleanup(pthread_self(), nullptr, nullptr); })},
        {"ThreadSigBlock", Done([] { ThreadSigBlock(SIGUSR2); })},
        {"ThreadSigUnblock", Done([] { ThreadSigUnblock(SIGUSR2); })},
        {"ThreadSigBlockall", Done([] { ThreadSigBlockall(); })},
    };
}

std::vector<Operation> Semaphores() {
    return {
        {"set_semvalue", [] { return set_semvalue(g_semaphore); }, MakeSemaphore, RemoveSemaphore},
        {"del_semvalue", [] { return del_semvalue(g_semaphore); }, MakeSemaphore, RemoveSemaphore},
        {"semaphore_p", [] { return semaphore_p(g_semaphore); }, MakeSemaphore, RemoveSemaphore},
        {"semaphore_v", [] { return semaphore_v(g_semaphore); }, Taken, RemoveSemaphore},
        {.name = "CreateMsgQueue", .call = [] { return CreateMsgQueue(1, 0); }, .good = -1},
        {.name = "DestroyMsgQueue", .call = [] { return DestroyMsgQueue(1); }, .good = 0},
        {.name = "RecvFromQueue",
         .call = [] { return RecvFromQueue(1, 1, g_text, 1, 0); },
         .good = 0},
        {.name = "SendtoQueue", .call = [] { return SendtoQueue(1, 1, g_text, 1, 0); }, .good = 0},
        {.name = "IpcSendMsgToQueue",
         .call = [] { return IpcSendMsgToQueue(1, 1, 1, g_text, 1, 0); },
         .good = -1},
    };
}

std::vector<Operation> Queues() {
    std::vector<Operation> all = {
        {.name = "queue_create",
         .call =
             [] {
                 g_queue = nullptr;
                 g_queue = queue_create();
                 return g_queue != nullptr ? 0 : 1;
             },
         .undo = DestroyQueue,
         .lenient = "without memory the process ends"},
        {"queue_empty", [] { return queue_empty(g_queue) - 1; }, MakeQueue, DestroyQueue},
        {"queue_enqueue", Done([] { queue_enqueue(Entry(), g_queue); }), MakeQueue, DestroyQueue},
        {"queue_dequeue",
         [] {
             queue_entry_t entry = queue_dequeue(g_queue);
             free(entry);
             return entry != nullptr ? 0 : 1;
         },
         [] {
             MakeQueue();
             queue_enqueue(Entry(), g_queue);
         },
         DestroyQueue},
        {"queue_destroy", Done([] { queue_destroy(g_queue); }), MakeQueue},
        {.name = "vimbra_g_list_append",
         .call =
             [] {
                 GList* const list = vimbra_g_list_append(g_list, &g_data);
                 const bool isThere = list != nullptr;
                 g_list = list;
                 return isThere ? 0 : 1;
             },
         .others = {1}},
        {"vimbra_g_list_remove",
         [] {
             g_list = vimbra_g_list_remove(g_list, &g_data);
             return 0;
         },
         [] { g_list = vimbra_g_list_append(g_list, &g_data); }},
        {"vimbra_g_list_first", [] { return vimbra_g_list_first(nullptr) == nullptr ? 0 : 1; }},
    };
    for (const Operation& operation : Semaphores()) {
        all.push_back(operation);
    }
    return all;
}

}  // namespace

std::vector<Operation> CoreOperations() {
    std::vector<Operation> all = Beginnings();
    for (const Operation& operation : Interfaces()) {
        all.push_back(operation);
    }
    return all;
}

std::vector<Operation> IpcOperations() {
    return {
        {"IpcApiSendAndRecv",
         [] { return IpcApiSendAndRecv(1, "body", 4, &g_reply, sizeof(g_reply)); }},
        {"IpcApiSendAndRecv: no reply", [] { return IpcApiSendAndRecv(1, "body", 4, nullptr, 0); }},
        {"IpcApiSendAndRecv: largest body",
         [] {
             static const u8 body[VIMBRA_IPC_BODY_MAX] = {};
             return IpcApiSendAndRecv(1, body, sizeof(body), &g_reply, sizeof(g_reply));
         }},
        {"IpcCallbackSendAndRecv",
         [] {
             return IpcCallbackSendAndRecv("api_daemon", 1, nullptr, 0, &g_reply, sizeof(g_reply));
         }},
        {"IpcApiSendMsg",
         [] {
             u32 body = 1;
             return IpcApiSendMsg(g_ends[0], 1, &body, sizeof(body), 0);
         },
         OpenPair, ClosePair},
        {.name = "IpcApiRecvmsg",
         .call = [] { return IpcApiRecvmsg(0, 1, g_text, sizeof(g_text), 0); },
         .good = -1},
        {"MakeAddrClient",
         [] {
             const s32 result = MakeAddrClient(g_socket, "api_daemon", &g_address, &g_length);
             close(g_socket);
             return result;
         },
         OpenSocket},
        {"MakeAddrServer", [] { return MakeAddrServer(g_socket, "served", &g_address, &g_length); },
         OpenSocket, CloseSocket},
        {"VimbraDebugLevelSet", [] { return VimbraDebugLevelSet(VIMBRA_LEVEL_DEBUG); }},
        {"VimbraLogError", Done([] { VimbraLogError("%d\n", 1); })},
        {"VimbraLogPerror", Done([] { VimbraLogPerror("%d\n", 1); })},
        {"VimbraLogWarn", Done([] { VimbraLogWarn("%d\n", 1); })},
        {"VimbraLogPrint", Done([] { VimbraLogPrint("%d\n", 1); })},
        {"VimbraLogDebug", Done([] { VimbraLogDebug("%d\n", 1); })},
        {"VimbraLastFailure", [] { return VimbraLastFailure(&g_failure); },
         [] { VimbraIfaceGetMtu(nullptr, nullptr); }},
        {"VimbraResultText", [] { return VimbraResultText(0) != nullptr ? 0 : 1; }},
    };
}

std::vector<Operation> ThreadOperations() {
    std::vector<Operation> all = Threads();
    for (const Operation& operation : Queues()) {
        all.push_back(operation);
    }
    return all;
}

}  // namespace vimbra::tests::torture
