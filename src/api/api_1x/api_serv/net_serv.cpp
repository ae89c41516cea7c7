#include <vimbra/net_service.h>

s32 NetServiceStart(char*, TServInfo* ptServInfo) {
    return VimbraServiceStart(ptServInfo);
}

s32 NetServiceStop(char* pchServName, u16) {
    return VimbraServiceStop(pchServName);
}
