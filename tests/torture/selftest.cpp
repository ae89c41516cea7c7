// Operations with a fault each, which the torture has to find: who never finds one proves nothing.
#include "selftest.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sys/sem.h>
#include <unistd.h>
#include <vimbra/ipc.h>

#include <cstdio>
#include <cstring>
#include <vimbra/bed.hpp>

#include "harness.hpp"

// Calls as the library makes them.
extern "C" {
void* torture_calloc(size_t count, size_t size);
void torture_free(void* block);
int torture_open(const char* path, int flags, ...);
int torture_close(int fd);
ssize_t torture_write(int fd, const void* data, size_t size);
int torture_access(const char* path, int mode);
int torture_semop(int id, sembuf* operations, size_t count);
int torture_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                           void* (*body)(void*), void* argument);
}

namespace vimbra::tests::torture {

namespace {

constexpr char kPath[] = "/etc/resolv.conf";

struct Fault {
    Operation operation;
    const char* complaint;
};

long Forgets() {
    void* one = torture_calloc(1, 8);
    void* other = torture_calloc(1, 8);
    if (other == nullptr) {
        return -1;
    }
    torture_free(one);
    torture_free(other);
    return 0;
}

long ForgetsADescriptor() {
    const int fd = torture_open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (torture_access("/", R_OK) != 0) {
        return -1;
    }
    torture_close(fd);
    return 0;
}

long DoesNotLook() {
    auto* text = static_cast<volatile char*>(torture_calloc(1, 8));
    text[0] = 'a';
    torture_free(const_cast<char*>(text));
    return 0;
}

long IsStuck() {
    while (torture_access("/", R_OK) != 0) {
        pause();
    }
    return 0;
}

long HasAResultOfItsOwn() {
    return torture_access("/", R_OK) == 0 ? 0 : 77;
}

long SaysThatAllIsWell() {
    u32 reply = 0;
    IpcApiSendAndRecv(1, nullptr, 0, &reply, sizeof(reply));
    return 0;
}

long AsksTwice() {
    u32 reply = 0;
    const s32 result = IpcApiSendAndRecv(1, nullptr, 0, &reply, sizeof(reply));
    return result == 0 ? 0 : IpcApiSendAndRecv(1, nullptr, 0, &reply, sizeof(reply));
}

long FailsEverAfter() {
    static bool hasFailed = false;
    hasFailed = hasFailed || torture_access("/", R_OK) != 0;
    return hasFailed ? -1 : 0;
}

long CutsFirst() {
    const int fd = torture_open(kPath, O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const bool isWritten = torture_write(fd, "new\n", 4) == 4;
    torture_close(fd);
    return isWritten ? 0 : -1;
}

void* Stay(void*) {
    for (;;) {
        pause();
    }
}

long LeavesAThread() {
    pthread_t thread;
    if (torture_access("/", R_OK) != 0) {
        torture_pthread_create(&thread, nullptr, Stay, nullptr);
        return -1;
    }
    return 0;
}

void MakeSemaphore() {
    if (semget(7783, 1, 0) < 0) {
        semctl(semget(7783, 1, IPC_CREAT | 0600), 0, SETVAL, 1);
    }
}

long GivesBackWhatItHasNot() {
    const int id = semget(7783, 1, 0);
    sembuf take = {0, -1, 0};
    sembuf give = {0, 1, 0};
    torture_semop(id, &take, 1);
    torture_semop(id, &give, 1);
    return 0;
}

void MakeFile() {
    bed::WriteFile(kPath, "old\n");
}

std::vector<Fault> Faults() {
    return {
        {{.name = "a block", .call = Forgets, .others = {-1}}, "each time there are more"},
        {{.name = "a descriptor", .call = ForgetsADescriptor, .others = {-1}},
         "each time there are more"},
        {{.name = "no look", .call = DoesNotLook, .others = {-1}}, "ends by Segmentation fault"},
        {{.name = "stuck", .call = IsStuck, .others = {-1}}, "hangs"},
        {{.name = "own result", .call = HasAResultOfItsOwn, .others = {-1}},
         "the header does not list 77"},
        {{.name = "all is well", .call = SaysThatAllIsWell, .others = {-1}},
         "without the daemon's knowing"},
        {{.name = "twice", .call = AsksTwice, .others = {-1, 1101, 1102}}, "the daemon saw 2"},
        {{.name = "ever after", .call = FailsEverAfter, .others = {-1}}, "the next call gives -1"},
        {{.name = "cut first", .call = CutsFirst, .prepare = MakeFile, .others = {-1}},
         "has neither content"},
        {{.name = "a semaphore", .call = GivesBackWhatItHasNot, .prepare = MakeSemaphore},
         "semaphore 7783 is at 2"},
        {{.name = "a thread", .call = LeavesAThread, .others = {-1}}, "a thread"},
    };
}

bool IsFound(const Fault& fault) {
    const Outcome outcome = Torture(fault.operation, {.patience = 1, .enough = 1});
    for (const std::string& complaint : outcome.complaints) {
        if (complaint.find(fault.complaint) != std::string::npos) {
            return true;
        }
    }
    printf("not found: %s (%s)\n", fault.operation.name.c_str(), fault.complaint);
    for (const std::string& complaint : outcome.complaints) {
        printf("    %s\n", complaint.c_str());
    }
    return false;
}

}  // namespace

bool FaultsAreFound() {
    bool areFound = true;
    for (const Fault& fault : Faults()) {
        areFound &= IsFound(fault);
    }
    return areFound;
}

}  // namespace vimbra::tests::torture
