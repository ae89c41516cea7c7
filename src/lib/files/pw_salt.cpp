#include "lib/files/pw_salt.hpp"

#ifndef VIMBRA_HAS_NO_CRYPT
#include <crypt.h>
#endif
#include <sys/time.h>
#include <vimbra/account.h>

#include <cstring>

#include "lib/base/lock.hpp"

using namespace vimbra;

s32 i64c(s32 nValue) {
    return "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"[nValue & 63];
}

u64 monotonic_us() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<u64>(now.tv_sec) * 1000000 + static_cast<u64>(now.tv_usec);
}

u32 crypt_make_salt(char* pchSalt, s32 nSteps) {
    u32 state = static_cast<u32>(getpid()) + static_cast<u32>(monotonic_us());
    if (pchSalt == nullptr) {
        return state;
    }
    for (s32 i = 0; i < nSteps; i++) {
        state = state * 1664525 + 1013904223;
        *pchSalt++ = static_cast<char>(i64c(static_cast<s32>(state >> 16)));
        *pchSalt++ = static_cast<char>(i64c(static_cast<s32>(state >> 22)));
    }
    *pchSalt = '\0';
    return state;
}

char* crypt_make_pw_salt(char* pchSalt, const char* pchAlgo) {
    constexpr char kMd5Prefix[] = "$1$";
    if (pchSalt == nullptr || pchAlgo == nullptr) {
        return nullptr;
    }
    s32 steps = 1;
    if (pchAlgo[0] != 'd') {
        memcpy(pchSalt, kMd5Prefix, sizeof(kMd5Prefix) - 1);
        pchSalt += sizeof(kMd5Prefix) - 1;
        steps = 4;
    }
    crypt_make_salt(pchSalt, steps);
    return pchSalt;
}

namespace {

#if defined VIMBRA_HAS_CRYPT_R
class Hasher {
 public:
    ~Hasher() {
        if (work_) {
            explicit_bzero(work_.Get(), sizeof(crypt_data));
        }
    }
    const char* Hash(const char* password, const char* salt) {
        return work_ ? crypt_r(password, salt, reinterpret_cast<crypt_data*>(work_.Get()))
                     : nullptr;
    }

 private:
    const Buffer work_{sizeof(crypt_data)};
};
#elif defined VIMBRA_HAS_CRYPT
pthread_mutex_t g_tHashMutex = PTHREAD_MUTEX_INITIALIZER;

// All hashes are made in the same memory, so there is one at a time until it is copied.
class Hasher {
 public:
    const char* Hash(const char* password, const char* salt) { return crypt(password, salt); }

 private:
    Lock lock_{g_tHashMutex};
};
#elif defined VIMBRA_HAS_NO_CRYPT
class Hasher {
 public:
    const char* Hash(const char*, const char*) { return nullptr; }
};
#else
#error "cmake/Crypt.cmake says how passwords are hashed"
#endif

}  // namespace

void vimbra::ForgetHashing() {
#ifdef VIMBRA_HAS_CRYPT
    g_tHashMutex = PTHREAD_MUTEX_INITIALIZER;
#endif
}

bool vimbra::HashPassword(CallSite site, const char* password, Buffer& hash) {
    char salt[VIMBRA_SALT_SIZE];
    crypt_make_pw_salt(salt, "md5");
    Hasher hasher;
    const char* text = hasher.Hash(password, salt);
    // Some C libraries say no with a text that no hash can be.
    const bool isHash = text != nullptr && text[0] != '*';
    if (!isHash) {
        VLOG_ERROR_AT(site, "NetSetNetPwd error");
    } else if (!hash.Allocate(strlen(text) + 1)) {
        VLOG_ERROR_AT(site, "xstrdup error");
    } else {
        memcpy(hash.Get(), text, strlen(text));
        VLOG_PRINT_AT(site, "password: [%s]", text);
    }
    return isHash && hash;
}
