#include <vimbra/net_stat.h>

s32 NetStatNotifyCallbackReg(int nInterval, TDevStatNotifyCallBack pfNotifyCb) {
    return VimbraStatNotifyCallbackReg(nInterval, pfNotifyCb);
}

s32 NetStatStop() {
    return VimbraStatStop();
}
