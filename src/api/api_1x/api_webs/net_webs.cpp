#include <vimbra/net_webs.h>
#include <vimbra/webs.h>

s32 NetWebsEnable(s32 port) {
    return VimbraWebsEnable(port);
}

s32 NetWebsDisable() {
    return VimbraWebsDisable();
}
