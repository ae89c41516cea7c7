#include "api/api_bond/api_bond.hpp"

#include <unistd.h>

#include "api/api_bond/bond_wire.hpp"
#include "lib/ipc/request.hpp"

using namespace vimbra;
using namespace vimbra::wire;

u32 g_dwBondIsStarted = 0;

namespace {

constexpr u32 kBondModes = 7;

constexpr RequestRule kStartRule = {
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    VIMBRA_TAG_ERR "send and recv msg error, nRet : %d!",
    Failure::kPassOn,
    Failure::kPassOn,
    RequestRule::OutOfMemory::kErrno,
    "XMALLOC error:",
};

constexpr RequestRule kStopRule = {
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    VIMBRA_TAG_ERR "send and recv msg error:%d!",
    Failure::kPassOn,
    Failure::kMinusOne,
    RequestRule::OutOfMemory::kErrno,
};

// A text's length on the wire. One that no message could hold is not measured to its end: it makes
// the body too long all the same.
u32 TextLength(const char* text) {
    return static_cast<u32>(strnlen(text, VIMBRA_IPC_BODY_MAX)) + 1;
}

// Fills the body from its front. What does not fit is counted and not written.
class BodyWriter {
 public:
    BodyWriter(u8* body, u32 size) : body_(body), size_(size) {}

    void Word(u32 value) { Append(&value, sizeof(value)); }

    void Text(const char* text, u32 length) {
        Word(length);
        Append(text, length - 1);
        Append("", 1);
    }

    u32 Used() const { return used_; }

 private:
    void Append(const void* data, u32 size) {
        if (used_ <= size_ && size <= size_ - used_) {
            memcpy(body_ + used_, data, size);
        }
        used_ += size;
    }

    u8* body_;
    u32 size_;
    u32 used_ = 0;
};

u32 BodyLength(const TVimbraBondParam& param) {
    constexpr u32 kWords = 5 * sizeof(u32);
    u32 length = kWords + TextLength(param.pchBondPath);
    for (u32 i = 0; i < param.dwIfaceNum; i++) {
        length += sizeof(u32) + TextLength(param.achIface[i]);
    }
    if (param.pchActiveIface != nullptr) {
        length += TextLength(param.pchActiveIface);
    }
    return length;
}

// Without a name of its own the first member's is put in: the length has no room for it, so the
// request is not sent.
// Kept: a bond needs to be given its active member; the test is
// Bond.WithoutActiveInterfaceNothingIsSent.
void PutActive(CallSite site, const TVimbraBondParam& param, BodyWriter& writer) {
    if (param.pchActiveIface != nullptr) {
        const u32 length = TextLength(param.pchActiveIface);
        VLOG_PRINT_AT(site, "active iface len : %d", static_cast<int>(length));
        VLOG_PRINT_AT(site, "active iface : %s", param.pchActiveIface);
        writer.Text(param.pchActiveIface, length);
        return;
    }
    const char* first = param.dwIfaceNum > 0 ? param.achIface[0] : "";
    const u32 length = TextLength(first);
    VLOG_PRINT_AT(site, "active iface [0] len : %d", static_cast<int>(length));
    VLOG_PRINT_AT(site, "active iface [0] : %s", first);
    writer.Text(first, length);
}

void PutBody(CallSite site, u32 mode, const TVimbraBondParam& param, u32 total,
             BodyWriter& writer) {
    writer.Word(total);
    VLOG_PRINT_AT(site, "dwBondMode : %d", static_cast<int>(mode));
    writer.Word(mode);
    const u32 pathLength = TextLength(param.pchBondPath);
    VLOG_PRINT_AT(site, "ptBondParam->pchBondPath : %d", static_cast<int>(pathLength));
    VLOG_PRINT_AT(site, "ptBondParam->pchBondPath : %s", param.pchBondPath);
    writer.Text(param.pchBondPath, pathLength);
    VLOG_PRINT_AT(site, "ptBondParam->dwIfaceNum : %d", static_cast<int>(param.dwIfaceNum));
    writer.Word(param.dwIfaceNum);
    for (u32 i = 0; i < param.dwIfaceNum; i++) {
        const u32 length = TextLength(param.achIface[i]);
        VLOG_PRINT_AT(site, "%d len : %d", static_cast<int>(i), static_cast<int>(length));
        VLOG_PRINT_AT(site, "%d iface : %s", static_cast<int>(i), param.achIface[i]);
        writer.Text(param.achIface[i], length);
    }
    PutActive(site, param, writer);
}

bool CheckMembers(CallSite site, const TVimbraBondParam& param) {
    if (param.dwIfaceNum > VIMBRA_BOND_IFACE_MAX) {
        VLOG_ERROR_AT(site, "the bond param dwIfaceNum is invalid!");
        return false;
    }
    for (u32 i = 0; i < param.dwIfaceNum; i++) {
        if (param.achIface[i] == nullptr) {
            VLOG_ERROR_AT(site, "the bond param achIface is NULL!");
            return false;
        }
    }
    return true;
}

void SetStarted(u32 isStarted) {
    __atomic_store_n(&g_dwBondIsStarted, isStarted, __ATOMIC_RELAXED);
}

}  // namespace

s32 ApicBondStart(u32 dwBondMode, const TVimbraBondParam* ptBondParam) {
    const u32 nSendLen = BodyLength(*ptBondParam);
    VLOG_PRINT("nSendLen : %d", static_cast<int>(nSendLen));
    BytesRequest request(VIMBRA_HERE, kStartRule, nSendLen);
    if (!request) {
        return VIMBRA_ERR_GENERAL;
    }
    BodyWriter writer(request.Body(), nSendLen);
    PutBody(VIMBRA_HERE, dwBondMode, *ptBondParam, nSendLen, writer);
    if (writer.Used() != nSendLen) {
        VLOG_ERROR("the used len and the send len are diffent!");
        return VIMBRA_ERR_GENERAL;
    }
    return request.Send(kBondStart);
}

s32 ApicBondStop() {
    Request<NoBody> request(VIMBRA_HERE, kStopRule);
    return request ? request.Send(kBondStop) : VIMBRA_ERR_GENERAL;
}

s32 VimbraBondStart(u32 dwBondMode, TVimbraBondParam* ptBondParam) {
    if (dwBondMode >= kBondModes) {
        VLOG_ERROR("the bond mode is invalid!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptBondParam == nullptr) {
        VLOG_ERROR("the bond param pointer is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (ptBondParam->pchBondPath == nullptr) {
        VLOG_ERROR("the bond param pchBondPath is NULL!");
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (!CheckMembers(VIMBRA_HERE, *ptBondParam)) {
        return RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
    if (access(ptBondParam->pchBondPath, F_OK) != 0) {
        const int error = errno;
        VLOG_ERROR("access %s error %d : %s", ptBondParam->pchBondPath, error, strerror(error));
        return VIMBRA_ERR_GENERAL;
    }
    if (ApicBondStart(dwBondMode, ptBondParam) != VIMBRA_OK) {
        VLOG_ERROR("ApicBondStart error");
        return VIMBRA_ERR_REFUSED;
    }
    VLOG_PRINT("NetBondStart successfully!");
    SetStarted(1);
    return VIMBRA_OK;
}

s32 VimbraBondStop() {
    // Kept: only -1 is a failure; the test is Bond.StopThatGoesWrongOnTheWayCountsAsDone.
    if (ApicBondStop() == VIMBRA_ERR_GENERAL) {
        VLOG_ERROR("ApicBondStop error");
        return VIMBRA_ERR_GENERAL;
    }
    SetStarted(0);
    VLOG_PRINT("NetBondStop successfully!");
    return VIMBRA_OK;
}
