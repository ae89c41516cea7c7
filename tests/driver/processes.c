/* Programs and processes, and the texts of their command lines. */
#include <arpa/inet.h>
#include <fcntl.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vimbra/process.h>

#include "driver.h"

static void drive_programs(void) {
    char* yes[] = {(char*)"true", NULL};
    char* no[] = {(char*)"false", NULL};
    char* echo[] = {(char*)"echo", (char*)"hello", NULL};
    char command[64] = "echo hello";
    char output[64] = "";
    s32 length = 0;
    s32 child = 0;

    GIVES(0, VimbraExecShellProcess("true", yes, &child));
    HOLDS(child > 0);
    GIVES(1, VimbraExecShellProcess("false", no, NULL));
    GIVES(255, VimbraExecShellProcess("/none", yes, NULL));
    GIVES(-1, VimbraExecShellProcess(NULL, yes, NULL));
    GIVES(0, VimbraExecShellPrcPipe("echo", echo, output, sizeof(output), &length));
    GIVES(6, length);
    HOLDS(memcmp(output, "hello\n", 6) == 0);
    GIVES(-1, VimbraExecShellPrcPipe("echo", echo, NULL, sizeof(output), &length));
    GIVES(0, ExecCmd(command, sizeof(command), 0));
    GIVES(-1, ExecCmd(NULL, 0, 0));
    strcpy(command, "echo hello");
    memset(output, 0, sizeof(output));
    GIVES(0, VimbraExecCmdAndGetOutput(command, sizeof(command), output, sizeof(output)));
    HOLDS(strncmp(output, "hello", 5) == 0);
    GIVES(-1, VimbraExecCmdAndGetOutput(command, sizeof(command), NULL, sizeof(output)));
}

/* Each does to the caller what nobody here could go on with. */
static void drive_descriptors(void) {
    int status = -1;
    pid_t child = fork();

    if (child == 0) {
        const int fd = open("/dev/null", O_RDONLY);
        CloseInheritFatherProcessFd(3);
        _exit(fcntl(fd, F_GETFD) == -1 && fcntl(2, F_GETFD) != -1 ? 0 : 1);
    }
    waitpid(child, &status, 0);
    GIVES(0, status);
    child = fork();
    if (child == 0) {
        NewProcessSafe();
        _exit(0);
    }
    waitpid(child, &status, 0);
    GIVES(0, status);
}

static void drive_texts(void) {
    char command[] = "a bb c";
    char settings[] = "mode=fast;size=9";
    char fields[] = "0a:ff";
    char wrong[] = "0g:ff";
    char value[8];
    char bytes[2];
    char* arguments[5];
    u32 mask = htonl(0xffff0000);
    u32 bits = 0;

    GIVES(0, VimbraBufToArgv(command, arguments, 4, sizeof(command), ' '));
    check_text("argument", "bb", arguments[1]);
    HOLDS(arguments[3] == NULL);
    GIVES(-1, VimbraBufToArgv(NULL, arguments, 4, 10, ' '));
    GIVES(0, VimbraFindStrMatchHead(settings, (char*)"mode=", ';', value, sizeof(value)));
    GIVES(-1, VimbraFindStrMatchHead(settings, (char*)"none=", ';', value, sizeof(value)));
    GIVES(0, StrToU8WitchoutSepchar(fields, ':', bytes, sizeof(bytes)));
    HOLDS((u8)bytes[0] == 10 && (u8)bytes[1] == 255);
    GIVES(-1, StrToU8WitchoutSepchar(wrong, ':', bytes, sizeof(bytes)));
    GIVES(0, MaskConvertIpv4(&mask, &bits, 0));
    GIVES(16, bits);
    bits = 24;
    GIVES(0, MaskConvertIpv4(&mask, &bits, 1));
    HOLDS(mask == htonl(0xffffff00));
    bits = 33;
    GIVES(-1, MaskConvertIpv4(&mask, &bits, 1));
}

static void drive_search(void) {
    char proc[] = "/proc/";
    char none[] = "no-such-program";
    char word[] = "no-such-word";

    GIVES(0, GetServicePid(proc, none));
    GIVES(-1, GetServicePid((char*)"/none/", none));
    GIVES(-1, GetServicePid(NULL, none));
    GIVES(0, GetServicePidFromCmdline(proc, none, word));
    GIVES(-1, GetServicePidFromCmdline((char*)"/none/", none, word));
    GIVES(0, GetServicePidFromCmdline2(proc, none, word, word));
    GIVES(-1, GetServicePidFromCmdline2(NULL, none, word, word));
    GIVES(0, CheckCmdByPid(getpid(), none));
    GIVES(-1, CheckCmdByPid(getpid(), NULL));
}

void drive_processes(void) {
    drive_programs();
    drive_descriptors();
    drive_texts();
    drive_search();
}
