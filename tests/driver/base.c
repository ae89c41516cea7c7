/* Log, failures, socket protocol, lists, queues, semaphores, checks of addresses and interfaces. */
#include <arpa/inet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>
#include <vimbra/iface_check.h>
#include <vimbra/list.h>
#include <vimbra/log.h>
#include <vimbra/msg_queue.h>
#include <vimbra/queue.h>
#include <vimbra/semaphore.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static void drive_log(void) {
    HOLDS(g_nVimbraLogSwitch == VIMBRA_LEVEL_DEBUG);
    VimbraLogError("driver: %s\n", "error");
    VimbraLogPerror("driver: %s\n", "perror");
    VimbraLogWarn("driver: %d\n", 1);
    VimbraLogPrint("driver: %d\n", 2);
    VimbraLogDebug("driver: %d\n", 3);
    GIVES(0, VimbraDebugLevelSet(VIMBRA_LEVEL_NONE));
    HOLDS(g_nVimbraLogSwitch == VIMBRA_LEVEL_NONE);
}

static void drive_start(void) {
    char version[256];
    char small[4];

    GIVES(0, VimbraInit());
    GIVES(0, VimbraInit());
    GIVES(0, VimbraQueryVersion(version, sizeof(version)));
    HOLDS(strstr(version, VIMBRA_VERSION_TEXT) != NULL);
    GIVES(-1, VimbraQueryVersion(NULL, 256));
    GIVES(-1, VimbraQueryVersion(small, sizeof(small)));
}

static void drive_failures(void) {
    TVimbraFailure failure;
    char eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";
    u32 mtu;

    GIVES(-1, VimbraLastFailure(NULL));
    GIVES(VIMBRA_ERR_PARAM, VimbraIfaceShutdown(NULL));
    GIVES(0, VimbraLastFailure(&failure));
    GIVES(VIMBRA_FAILURE_ARGUMENT, failure.eStep);
    check_text("failure.pchCall", "VimbraIfaceShutdown", failure.pchCall);
    GIVES(-1, VimbraLastFailure(&failure));
    /* Nobody serves yet. */
    GIVES(-1, VimbraIfaceGetMtu(eth0, &mtu));
    GIVES(0, VimbraLastFailure(&failure));
    GIVES(VIMBRA_FAILURE_NO_DAEMON, failure.eStep);
    HOLDS(VimbraResultText(VIMBRA_ERR_PARAM) != NULL);
    HOLDS(strcmp(VimbraResultText(VIMBRA_ERR_PARAM), VimbraResultText(VIMBRA_ERR_REFUSED)) != 0);
}

static void drive_ipc(void) {
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    const int client = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address;
    socklen_t length;
    IpcMsgHead head;
    char body[] = "hello";
    char got[sizeof(body)];
    int accepted;

    GIVES(-1, MakeAddrServer(server, NULL, &address, &length));
    GIVES(0, MakeAddrServer(server, "driver", &address, &length));
    check_text("address", "/tmp/driver", address.sun_path);
    GIVES(-1, MakeAddrClient(client, "nobody", &address, &length));
    GIVES(0, MakeAddrClient(client, "driver", &address, &length));
    accepted = accept(server, NULL, NULL);
    GIVES(0, IpcApiSendMsg(client, 5, body, sizeof(body), 9));
    GIVES(sizeof(head), read(accepted, &head, sizeof(head)));
    HOLDS(head.type == 5 && head.size == sizeof(body) && head.flag == 9);
    GIVES(sizeof(got), read(accepted, got, sizeof(got)));
    check_text("body", body, got);
    GIVES(-1, IpcApiSendMsg(client, 5, body, -1, 0));
    GIVES(-1, IpcApiRecvmsg(client, 5, got, sizeof(got), 0));
    GIVES(-1, IpcApiSendAndRecv(5, body, -1, got, sizeof(got)));
    GIVES(-1, IpcApiSendAndRecv(5, body, sizeof(body), got, sizeof(got)));
    GIVES(-1, IpcCallbackSendAndRecv("nobody", 5, body, sizeof(body), NULL, 0));
    GIVES(-1, IpcCallbackSendAndRecv(NULL, 5, body, sizeof(body), NULL, 0));
    close(accepted);
    close(client);
    close(server);
}

static void drive_lists(void) {
    int first = 1;
    int second = 2;
    GList* list = vimbra_g_list_append(NULL, &first);

    list = vimbra_g_list_append(list, &second);
    HOLDS(list->data == &first && list->next->data == &second && list->next->next == NULL);
    HOLDS(vimbra_g_list_first(list->next) == list);
    HOLDS(vimbra_g_list_first(NULL) == NULL);
    list = vimbra_g_list_remove(list, &first);
    HOLDS(list->data == &second && list->prev == NULL);
    HOLDS(vimbra_g_list_remove(list, &first) == list);
    HOLDS(vimbra_g_list_remove(list, &second) == NULL);
}

static void drive_queues(void) {
    queue_t queue = queue_create();
    queue_entry_t entry = calloc(1, sizeof(*entry));

    GIVES(1, queue_empty(queue));
    HOLDS(queue_dequeue(queue) == NULL);
    queue_enqueue(entry, queue);
    GIVES(0, queue_empty(queue));
    HOLDS(queue_dequeue(queue) == entry);
    queue_enqueue(entry, queue);
    queue_destroy(queue);

    GIVES(-1, CreateMsgQueue(1, 0));
    GIVES(0, DestroyMsgQueue(1));
    GIVES(0, RecvFromQueue(1, 1, NULL, 0, 0));
    GIVES(0, SendtoQueue(1, 1, NULL, 0, 0));
    GIVES(-1, IpcSendMsgToQueue(1, 1, 1, NULL, 0, 0));
}

static void drive_semaphores(void) {
    const int set = semget(IPC_PRIVATE, 1, 0600 | IPC_CREAT);

    GIVES(0, set_semvalue(set));
    GIVES(0, semaphore_p(set));
    GIVES(0, semctl(set, 0, GETVAL));
    GIVES(0, semaphore_v(set));
    GIVES(1, semctl(set, 0, GETVAL));
    GIVES(0, del_semvalue(set));
    GIVES(-1, set_semvalue(set));
    GIVES(-1, semaphore_p(set));
    GIVES(-1, semaphore_v(set));
    GIVES(-1, del_semvalue(set));
}

static void drive_addresses(void) {
    const u32 mask = htonl(0xffffff00);

    GIVES(0, check_mask(mask));
    GIVES(-1, check_mask(htonl(0xff00ff00)));
    GIVES(VIMBRA_IP_CLASS_C, check_ip(inet_addr("192.0.2.1")));
    GIVES(VIMBRA_IP_CLASS_OTHER, check_ip(inet_addr("127.0.0.1")));
    GIVES(0, check_ip_mask_gateway_the_same_net(inet_addr("192.0.2.1"), mask,
                                                inet_addr("192.0.2.254")));
    GIVES(VIMBRA_ERR_NOT_SAME_NET,
          check_ip_mask_gateway_the_same_net(inet_addr("192.0.2.1"), mask, inet_addr("192.0.3.1")));
    GIVES(0, check_intranet_ip(inet_addr("192.0.2.1"), mask));
    GIVES(-1, check_intranet_ip(inet_addr("192.0.2.255"), mask));
}

static void drive_interfaces(void) {
    char lo[VIMBRA_IFACE_NAME_LEN] = "lo";
    char none[VIMBRA_IFACE_NAME_LEN] = "none0";
    char name[VIMBRA_IFACE_NAME_LEN];
    u8 hardware[6];
    struct in_addr address;
    struct ifreq request;
    u16 family;
    u32 word;

    GIVES(0, interface_name(1, name, sizeof(name)));
    check_text("interface_name", "eth1", name);
    GIVES(VIMBRA_ERR_IFACE_NUMBER, interface_name(9, name, sizeof(name)));
    memset(&request, 0, sizeof(request));
    strcpy(request.ifr_name, lo);
    GIVES(0, SocketIoctl(SIOCGIFINDEX, (char*)&request));
    GIVES(-1, SocketIoctl(0, (char*)&request));
    GIVES(0, IfethGetFlags(lo, &word));
    HOLDS((word & IFF_UP) != 0 && (word & IFF_LOOPBACK) != 0);
    GIVES(-1, IfethGetFlags(none, &word));
    GIVES(0, IfethSetFlags(lo, IFF_UP));
    GIVES(-1, IfethSetFlags(none, IFF_UP));
    GIVES(-1, IfethGetLineStatus(none, &word));
    GIVES(-1, IfethGetLineStatus(lo, NULL));
    GIVES(0, IfethGetHwAddr(lo, hardware, &family));
    HOLDS(hardware[0] == 0 && hardware[5] == 0);
    GIVES(-1, IfethGetHwAddr(none, hardware, &family));
    GIVES(0, IfethGetIpAddr(lo, &address));
    HOLDS(address.s_addr == htonl(INADDR_LOOPBACK));
    GIVES(-1, IfethGetIpAddr(none, &address));
}

void drive_base(void) {
    drive_log();
    drive_start();
    drive_failures();
    drive_ipc();
    drive_lists();
    drive_queues();
    drive_semaphores();
    drive_addresses();
    drive_interfaces();
}
