#include <vimbra/msg_queue.h>

#include "lib/log.hpp"

using namespace vimbra;

int CreateMsgQueue(int, int) {
    errno = ENOSYS;
    VLOG_ERRNO("msgget error");
    return -1;
}

int DestroyMsgQueue(int) {
    return 0;
}

int RecvFromQueue(int, long, void*, int, int) {
    return 0;
}

int SendtoQueue(int, long, const void*, int, int) {
    return 0;
}

int IpcSendMsgToQueue(int key, int, long, void* msg, int, int nMsgFlag) {
    if (msg == nullptr) {
        VLOG_ERROR("msg is NULL!");
        return -1;
    }
    // Without a queue there is nobody to frame the message for.
    CreateMsgQueue(key, nMsgFlag);
    VLOG_ERRNO("CreateMsgQueue error!\n");
    return -1;
}
