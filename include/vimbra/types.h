/**
 * @file
 * Widths, families and result codes that every header of the library shares.
 */
#ifndef VIMBRA_TYPES_H
#define VIMBRA_TYPES_H

#include <netinet/in.h>
#include <stdint.h>

#ifdef __cplusplus
/** Begins declarations with the linkage of C. */
#define VIMBRA_BEGIN_DECLS extern "C" {
/** Ends them. */
#define VIMBRA_END_DECLS }
/** Gives an enumeration the four bytes that it has on the wire. */
#define VIMBRA_ENUM32 : uint32_t
#else
/** Nothing to begin in C. */
#define VIMBRA_BEGIN_DECLS
/** Nothing to end in C. */
#define VIMBRA_END_DECLS
/** An enumeration of C has four bytes of itself. */
#define VIMBRA_ENUM32
#endif

/** Marks what the shared library exports. */
#define VIMBRA_API __attribute__((visibility("default")))

typedef uint8_t u8;   /**< 8 bits, unsigned */
typedef uint16_t u16; /**< 16 bits, unsigned */
typedef uint32_t u32; /**< 32 bits, unsigned */
typedef uint64_t u64; /**< 64 bits, unsigned */
typedef int8_t s8;    /**< 8 bits, signed */
typedef int16_t s16;  /**< 16 bits, signed */
typedef int32_t s32;  /**< 32 bits, signed: what calls return */
typedef int64_t s64;  /**< 64 bits, signed */

/** A truth value as it is stored in records and sent to the daemon: 32 bits, 0 or not 0. */
typedef u32 vimbra_bool;

/** Longest interface name that a call accepts, and the width of a name field on the wire. */
#define VIMBRA_IFACE_NAME_LEN 16

/** Address families, as socket(2) numbers them. */
enum {
    VIMBRA_FAMILY_IPV4 = 2,  /**< AF_INET */
    VIMBRA_FAMILY_IPV6 = 10, /**< AF_INET6 */
    VIMBRA_FAMILY_BOTH = 11  /**< both; only where a call says so */
};

/**
 * Results of the calls. Calls that pass the daemon's own number on say so; such a number is the
 * daemon's and not in this list. Any call that talks to the daemon may also return a positive byte
 * count: the daemon answered with a message of the wrong size. VimbraLastFailure() tells what lies
 * behind a failure, VimbraResultText() a result in words; see <vimbra/failure.h>.
 */
enum {
    VIMBRA_OK = 0,                  /**< done */
    VIMBRA_ERR_GENERAL = -1,        /**< general failure */
    VIMBRA_ERR_SEND = 1101,         /**< the request could not be written whole */
    VIMBRA_ERR_RECV_TIMEOUT = 1102, /**< no reply within 60 seconds */
    VIMBRA_ERR_SEND_TIMEOUT = 1103, /**< IpcApiSendMsg(): no data taken for 60 seconds */
    VIMBRA_ERR_PARAM = 1105,        /**< a null or invalid argument */
    VIMBRA_ERR_CALLBACK = 1106,     /**< the callback is missing */
    VIMBRA_ERR_NO_PROCESS = 1108,   /**< the DHCP client process was not found */
    VIMBRA_ERR_REFUSED = 1109,      /**< a start was refused, or the daemon not reached */
    VIMBRA_ERR_NOT_SAME_NET = 1111, /**< address and gateway are not in one subnet */
    VIMBRA_ERR_IFACE_NUMBER = 1201, /**< there is no interface of this number */
    VIMBRA_IP_CLASS_A = 1301,       /**< check_ip(): 1.0.0.0 to 126.255.255.255 */
    VIMBRA_IP_CLASS_B = 1302,       /**< check_ip(): 128.0.0.0 to 191.255.255.255 */
    VIMBRA_IP_CLASS_C = 1303,       /**< check_ip(): 192.0.0.0 to 223.255.255.255 */
    VIMBRA_IP_CLASS_D = 1304,       /**< check_ip(): 224.0.0.0 to 239.255.255.255, multicast */
    VIMBRA_IP_CLASS_OTHER = 1305,   /**< check_ip(): everything else */
    VIMBRA_ERR_PING_THREAD = 1301,  /**< ping: no listener thread */
    VIMBRA_ERR_PING_STOP = 1303,    /**< ping: the stop was refused, or not sent */
    VIMBRA_ERR_PING_UNKNOWN = 1305, /**< ping: no test runs under this user id */
    VIMBRA_ERR_TRACE_STOP = 1403    /**< traceroute: the stop was refused, or not sent */
};

#endif
