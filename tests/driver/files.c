/* What the library does to files itself: accounts, DNS servers, services of inetd. */
#include <arpa/inet.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>

#include "driver.h"

static const char kPasswords[] = "/etc/passwd";
static const char kInetd[] = "/etc/inetd.conf";
static const char kHash[] = "$1$saltsalt$0123456789abcdefghijkl";

static void write_file(const char* path, const char* text) {
    FILE* file = fopen(path, "w");

    fputs(text, file);
    fclose(file);
}

static int file_has(const char* path, const char* text) {
    char content[4096];
    FILE* file = fopen(path, "r");
    size_t size;

    if (file == NULL) {
        return 0;
    }
    size = fread(content, 1, sizeof(content) - 1, file);
    content[size] = '\0';
    fclose(file);
    return strstr(content, text) != NULL;
}

static void drive_salts(void) {
    char salt[VIMBRA_SALT_SIZE] = "";
    FILE* file;

    GIVES('.', i64c(0));
    GIVES('z', i64c(63));
    GIVES('.', i64c(64));
    HOLDS(monotonic_us() > 0);
    HOLDS(crypt_make_pw_salt(salt, "md5") == salt + 3);
    HOLDS(strncmp(salt, "$1$", 3) == 0 && strlen(salt) == 11);
    HOLDS(crypt_make_pw_salt(NULL, "md5") == NULL);
    (void)crypt_make_salt(salt, 2);
    GIVES(4, strlen(salt));
    write_file(kInetd, "");
    file = open_config_file("r");
    HOLDS(file != NULL);
    fclose(file);
    file = OpenConfigFile("r");
    HOLDS(file != NULL);
    fclose(file);
}

static void drive_password_lines(void) {
    char kim[] = "kim";
    char lee[] = "lee";
    char hash[sizeof(kHash)];
    char other[VIMBRA_USER_NAME_SIZE];
    char* root;

    strcpy(hash, kHash);
    write_file(kPasswords, "root:x:0:0:root:/root:/bin/sh\n");
    GIVES(VIMBRA_USER_NONE, check_user_in_pwd_file(kim));
    GIVES(-1, check_user_in_pwd_file(NULL));
    GIVES(0, add_user_to_pwd_file(kim, hash));
    HOLDS(file_has(kPasswords, "\nkim:$1$saltsalt$0123456789abcdefghijkl:"));
    GIVES(-1, add_user_to_pwd_file(kim, NULL));
    GIVES(VIMBRA_USER_ONE, check_user_in_pwd_file(kim));
    GIVES(0, add_common_user_to_pwd_file(lee, hash));
    HOLDS(file_has(kPasswords, ":1000:1000:"));
    GIVES(-1, add_common_user_to_pwd_file((char*)"a:b", hash));
    GIVES(0, modify_user_in_pwd_file(lee, (char*)"other"));
    HOLDS(file_has(kPasswords, "\nlee:other:"));
    GIVES(-1, modify_user_in_pwd_file(lee, NULL));
    GIVES(0, IsLastRootUser(kim, other));
    check_text("IsLastRootUser", "root", other);
    GIVES(1, IsLastRootUser(NULL, other));
    GIVES(0, del_user_from_pwd_file(lee));
    HOLDS(!file_has(kPasswords, "lee:"));
    GIVES(-1, del_user_from_pwd_file(NULL));
    GIVES(0, del_user_from_pwd_file(kim));
    root = GetRootUser();
    check_text("GetRootUser", "root", root);
    free(root);
}

/* A password needs crypt, which not every C library has: without it the calls fail and leave the
 * file alone. */
static void drive_accounts(void) {
    const int set = DRIVER_HAS_CRYPT ? 0 : -1;
    char ann[] = "ann";
    char bob[] = "bob";
    char word[] = "password";

    GIVES(set, VimbraAddNetUser(ann, word));
    HOLDS(file_has(kPasswords, "\nann:$1$") == DRIVER_HAS_CRYPT);
    GIVES(-1, VimbraAddNetUser((char*)"root", word));
    GIVES(VIMBRA_ERR_PARAM, VimbraAddNetUser(NULL, word));
    GIVES(set, VimbraModifyNetPwd((char*)"root", word));
    HOLDS(file_has(kPasswords, "root:$1$") == DRIVER_HAS_CRYPT);
    GIVES(-1, VimbraModifyNetPwd(bob, word));
    GIVES(VIMBRA_ERR_PARAM, VimbraModifyNetPwd(ann, NULL));
    GIVES(set, NetAddNetCommonUser(bob, word));
    GIVES(-1, NetAddNetCommonUser(NULL, word));
    GIVES(set, NetModifyNetPwd(bob, word));
    GIVES(VIMBRA_ERR_PARAM, NetModifyNetPwd(NULL, word));
    GIVES(set, VimbraDelNetUser(ann));
    GIVES(VIMBRA_ERR_PARAM, VimbraDelNetUser(NULL));
    GIVES(-1, VimbraDelNetUser((char*)"root"));
    GIVES(set, NetAddNetUser(ann, word));
    GIVES(VIMBRA_ERR_PARAM, NetAddNetUser(ann, NULL));
    GIVES(set, NetDelNetUser(ann));
    GIVES(VIMBRA_ERR_PARAM, NetDelNetUser(NULL));
}

static TVimbraAddr server(const char* text) {
    TVimbraAddr address;

    memset(&address, 0, sizeof(address));
    address.wSinFamily = VIMBRA_FAMILY_IPV4;
    inet_pton(AF_INET, text, &address.tV4Addr);
    return address;
}

static void drive_dns(void) {
    char eth0[VIMBRA_IFACE_NAME_LEN] = "eth0";
    TVimbraAddr servers[2] = {server("192.0.2.1"), server("192.0.2.2")};
    u32 words[1] = {inet_addr("192.0.2.9")};
    TVimbraDnsAddrInfo all;
    TNetDnsParam* list;

    write_file("/etc/resolv.conf", "");
    GIVES(0, VimbraDNSSet(eth0, VIMBRA_FAMILY_IPV4, servers, 2));
    HOLDS(file_has("/etc/resolv.conf", "nameserver 192.0.2.1\nnameserver 192.0.2.2\n"));
    GIVES(VIMBRA_ERR_PARAM, VimbraDNSSet(NULL, VIMBRA_FAMILY_IPV4, servers, 2));
    GIVES(-1, VimbraDNSSet(eth0, VIMBRA_FAMILY_IPV6, servers, 2));
    GIVES(0, VimbraDNSGet(&all));
    GIVES(2, all.dwDnsNum);
    GIVES(-1, VimbraDNSGet(NULL));
    GIVES(0, WriteToDnsConf(eth0, servers, 1));
    GIVES(-1, WriteToDnsConf(NULL, servers, 1));
    list = ReadFromReslovconf();
    HOLDS(list != NULL && list->next->nDnsNum == 1);
    GIVES(0, SetDnsToList(list, eth0, servers, 2));
    GIVES(2, list->next->nDnsNum);
    GIVES(-1, SetDnsToList(NULL, eth0, servers, 2));
    GIVES(0, WriteToReslovconf(list));
    GIVES(-1, WriteToReslovconf(NULL));
    while (list != NULL) {
        TNetDnsParam* next = list->next;
        free(list->pchIfaceName);
        free(list);
        list = next;
    }
    GIVES(0, NetDNSSetEx(1, words, 1));
    HOLDS(file_has("/etc/resolv.conf", "nameserver 192.0.2.9\n"));
    GIVES(VIMBRA_ERR_IFACE_NUMBER, NetDNSSetEx(9, words, 1));
}

/* What the library takes for inetd: it ends when it is told of its configuration. */
static pid_t inetd_start(void) {
    int ready[2];
    char byte;
    pid_t child = -1;

    if (pipe(ready) == 0) {
        child = fork();
        if (child == 0) {
            prctl(PR_SET_NAME, "inetd");
            close(ready[0]);
            close(ready[1]);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        /* The end of the pipe is the word that it has its name. */
        GIVES(0, read(ready[0], &byte, 1));
        close(ready[0]);
    }
    return child;
}

static void inetd_is_told(pid_t inetd) {
    int status = 0;

    waitpid(inetd, &status, 0);
    HOLDS(WIFSIGNALED(status) && WTERMSIG(status) == SIGHUP);
}

static void drive_services(void) {
    char telnetd[] = "telnetd";
    char tcp[] = "tcp";
    TVimbraServInfo service = {telnetd, 23, tcp, NULL};
    pid_t inetd;

    ServiceInit();
    check_text("g_atNetServiceInfo", telnetd, g_atNetServiceInfo[0].pchServType);
    GIVES(VIMBRA_ERR_PARAM, VimbraServiceStart(NULL));
    GIVES(VIMBRA_ERR_PARAM, NetServiceStart(telnetd, NULL));
    GIVES(VIMBRA_ERR_PARAM, VimbraServiceStop(NULL));
    GIVES(VIMBRA_ERR_PARAM, NetServiceStop(NULL, 23));
    inetd = inetd_start();
    GIVES(0, VimbraServiceStart(&service));
    HOLDS(file_has(kInetd, "telnet\tstream\ttcp\tnowait\troot\t"));
    inetd_is_told(inetd);
    GIVES(0, ChangeNetServiceOwner((char*)"kim"));
    HOLDS(file_has(kInetd, " nowait kim "));
    GIVES(-1, ChangeNetServiceOwner(NULL));
    inetd = inetd_start();
    GIVES(0, VimbraServiceStop(telnetd));
    HOLDS(!file_has(kInetd, "telnet\t"));
    inetd_is_told(inetd);
    inetd = inetd_start();
    GIVES(0, NetServiceStart(telnetd, &service));
    inetd_is_told(inetd);
    inetd = inetd_start();
    GIVES(0, NetServiceStop(telnetd, 23));
    inetd_is_told(inetd);
    remove(kInetd);
    GIVES(VIMBRA_OWNER_NO_CONFIG, ChangeNetServiceOwner((char*)"kim"));
}

void drive_files(void) {
    drive_salts();
    drive_password_lines();
    drive_services();
    drive_accounts();
    drive_dns();
}
