// Texts taken apart: words, values behind a key, hexadecimal fields, netmasks.
#include <arpa/inet.h>
#include <vimbra/process.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "lib/log.hpp"

using namespace vimbra;

namespace {

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The first place from which on a field is not hexadecimal, or its length.
size_t FindNoHexDigit(const char* field, size_t from, size_t length) {
    while (from < length && IsHexDigit(field[from])) {
        from++;
    }
    return from;
}

struct ByteSink {
    char* data;
    s32 size;
    s32 count;
};

bool StoreHexField(CallSite site, const char* field, ByteSink& sink) {
    const unsigned long value = strtoul(field, nullptr, 16);
    if (value > 255) {
        VLOG_ERROR_AT(site, "is  not an hex char: %u", static_cast<unsigned>(value));
        return false;
    }
    if (sink.count >= sink.size) {
        VLOG_ERROR_AT(site, "dst is too small: size_dst=%d,dst_count =%d", sink.size, sink.count);
        return false;
    }
    sink.data[sink.count++] = static_cast<char>(value);
    return true;
}

// The next separator. A terminator separates nothing: there the text ends.
char* FindSeparator(char* text, char separator) {
    return separator == '\0' ? nullptr : strchr(text, separator);
}

}  // namespace

s32 VimbraBufToArgv(char* cmd, char** argv, s32 max_param, s32 max_length, char sepchar) {
    if (cmd == nullptr || argv == nullptr || max_param < 0) {
        return VIMBRA_ERR_GENERAL;
    }
    const size_t length = strlen(cmd);
    if (max_length <= 0 || length > static_cast<size_t>(max_length) - 1) {
        VLOG_ERROR("cmd length=%d,the max length is %d", static_cast<int>(length), max_length);
        return VIMBRA_ERR_GENERAL;
    }
    s32 count = 0;
    char* position = cmd;
    while (position != nullptr && *position != '\0' && count < max_param) {
        argv[count++] = position;
        position = FindSeparator(position, sepchar);
        while (position != nullptr && *position == sepchar) {
            *position++ = '\0';
        }
    }
    argv[count] = nullptr;
    if (count >= max_param) {
        VLOG_ERROR("argc=%d,the max parame is %d", count, max_param);
        return VIMBRA_ERR_GENERAL;
    }
    return VIMBRA_OK;
}

s32 VimbraFindStrMatchHead(char* buf, char* str_head, char sepchar, char* buf_ret, s32 size) {
    if (buf == nullptr) {
        VLOG_ERROR("buf is null");
        return VIMBRA_ERR_GENERAL;
    }
    const char* value = str_head == nullptr ? buf : strstr(buf, str_head);
    if (value == nullptr || buf_ret == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    value += str_head == nullptr ? 0 : strlen(str_head);
    if (*value == sepchar && *value != '\0') {
        value++;
    }
    const char* valueEnd = strchr(value, sepchar);
    const size_t length =
        valueEnd == nullptr ? strlen(value) : static_cast<size_t>(valueEnd - value);
    if (size < 0 || static_cast<size_t>(size) < length) {
        VLOG_ERROR("the buf is too long:%d,%d", size, static_cast<int>(length));
        return VIMBRA_ERR_GENERAL;
    }
    memcpy(buf_ret, value, length);
    buf_ret[length] = '\0';
    return VIMBRA_OK;
}

s32 StrToU8WitchoutSepchar(char* str, char sepchar, char* dst, s32 size_dst) {
    if (str == nullptr) {
        VLOG_ERROR("the source address is unvalid!");
        return VIMBRA_ERR_GENERAL;
    }
    if (dst == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    ByteSink sink = {dst, size_dst, 0};
    char* field = str;
    size_t length = 0;
    while (char* separator = FindSeparator(field, sepchar)) {
        *separator = '\0';
        length = static_cast<size_t>(separator - field);
        const size_t bad = FindNoHexDigit(field, 0, length);
        if (bad < length) {
            VLOG_ERROR("is not an hex char: %s:%d:%d", field, static_cast<int>(bad),
                       static_cast<int>(length));
            return VIMBRA_ERR_GENERAL;
        }
        if (!StoreHexField(VIMBRA_HERE, field, sink)) {
            return VIMBRA_ERR_GENERAL;
        }
        field = separator + 1;
    }
    // Kept: looked at only from where the field before it ended; the test is
    // StrToU8.TheLastFieldIsLookedAtFromWhereTheOneBeforeEnded.
    const size_t lastLength = strlen(field);
    const size_t bad = FindNoHexDigit(field, length, lastLength);
    if (bad < lastLength) {
        VLOG_ERROR("is not an hex char: [%s]:%d:%d", field, static_cast<int>(bad),
                   static_cast<int>(lastLength));
        return VIMBRA_ERR_GENERAL;
    }
    return StoreHexField(VIMBRA_HERE, field, sink) ? VIMBRA_OK : VIMBRA_ERR_GENERAL;
}

s32 MaskConvertIpv4(u32* p_net_byte_order, u32* p_bit_count, u32 flag) {
    constexpr u32 kBits = 32;
    if (p_net_byte_order == nullptr || p_bit_count == nullptr) {
        return VIMBRA_ERR_GENERAL;
    }
    const u32 mask = ntohl(*p_net_byte_order);
    // Kept: before the flag is looked at; the test is MaskConvert.AFullMaskIs32WhateverTheFlag.
    if (mask == 0xffffffff) {
        *p_bit_count = kBits;
        return VIMBRA_OK;
    }
    switch (flag) {
        case 0:
            *p_bit_count = static_cast<u32>(__builtin_clz(~mask));
            return VIMBRA_OK;
        case 1:
            if (*p_bit_count > kBits) {
                VLOG_ERROR("the network mask(%d) must be less than 32",
                           static_cast<int>(*p_bit_count));
                return VIMBRA_ERR_GENERAL;
            }
            *p_net_byte_order =
                *p_bit_count == 0 ? 0 : htonl(0xffffffffU << (kBits - *p_bit_count));
            return VIMBRA_OK;
        default:
            VLOG_ERROR("don't support the flag(%d)", static_cast<int>(flag));
            return VIMBRA_ERR_GENERAL;
    }
}
