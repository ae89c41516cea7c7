#include "lib/version.hpp"

#include <vimbra/net_common.h>
#include <vimbra/version.h>

#include <cstdio>
#include <cstring>

#include "build_info.h"
#include "lib/base/memory.hpp"
#include "lib/log.hpp"

s32 NetQueryVersion(char* pch_ver, u32 buf_len) {
    if (pch_ver == nullptr) {
        VLOG_ERROR("the point is NULL");
        return VIMBRA_ERR_GENERAL;
    }
    memset(pch_ver, 0, buf_len);
    char text[VIMBRA_VERSION_MAX];
    snprintf(text, sizeof(text), "Vimbras Module Version: V%s.%08x (%s@%s) Build %s %s",
             VIMBRA_VERSION_TEXT, VIMBRA_BUILD_NUMBER, VIMBRA_BUILD_USER, VIMBRA_BUILD_HOST,
             VIMBRA_BUILD_DATE, VIMBRA_BUILD_TIME);
    const size_t length = strlen(text);
    if (length >= buf_len) {
        VLOG_ERROR("the dwBufLen is invalid: dwBuflen = %d,the length of buf is %d",
                   static_cast<int>(buf_len), static_cast<int>(length));
        return VIMBRA_ERR_GENERAL;
    }
    memcpy(pch_ver, text, length + 1);
    return VIMBRA_OK;
}
