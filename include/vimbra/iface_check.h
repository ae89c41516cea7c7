/**
 * @file
 * Checks of IPv4 addresses, and the kernel's interface ioctls, netdevice(7). Nothing here talks to
 * the daemon. IPv4 words are in network byte order. <vimbra/vimbra.h> says what holds for every
 * call.
 */
#ifndef VIMBRA_IFACE_CHECK_H
#define VIMBRA_IFACE_CHECK_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * Is the word a netmask: ones from the top, then zeros only (RFC 950)? 0.0.0.0 and 255.255.255.255
 * are netmasks.
 *
 * @param mask  the mask, network byte order.
 * @retval 0    it is.
 * @retval -1   it is not.
 */
VIMBRA_API s32 check_mask(u32 mask);

/**
 * The address class (RFC 791).
 *
 * @param ip     the address, network byte order.
 * @retval 1301  class A, 1.0.0.0 to 126.255.255.255.
 * @retval 1302  class B, 128.0.0.0 to 191.255.255.255.
 * @retval 1303  class C, 192.0.0.0 to 223.255.255.255.
 * @retval 1304  class D (multicast), 224.0.0.0 to 239.255.255.255.
 * @retval 1305  anything else: 0.x.x.x, 127.x.x.x, 240.0.0.0 and above.
 */
VIMBRA_API s32 check_ip(u32 ip);

/**
 * Can the gateway be reached on the address's own subnet?
 *
 * @param ip       address, network byte order.
 * @param mask     its netmask, network byte order.
 * @param gateway  the gateway, network byte order; 0 for none.
 * @retval 0       yes, or there is no gateway.
 * @retval 1111    no.
 */
VIMBRA_API s32 check_ip_mask_gateway_the_same_net(u32 ip, u32 mask, u32 gateway);

/**
 * Can the address be given to a host of its subnet?
 *
 * @param ip    address, network byte order.
 * @param mask  its netmask, network byte order.
 * @retval 0    yes.
 * @retval -1   no: it is the subnet's own or its broadcast address.
 */
VIMBRA_API s32 check_intranet_ip(u32 ip, u32 mask);

/**
 * The name of a legacy interface number: 0, 1 and 2 are eth0, eth1 and eth2.
 *
 * @param ethid     the number.
 * @param devname   receives the name, zero-filled up to name_len as strncpy(3) does.
 * @param name_len  bytes to write; 5 or more give a terminated name.
 * @retval 0        done.
 * @retval 1201     there is no such interface.
 * @retval -1       a null devname or a negative name_len.
 */
VIMBRA_API s32 interface_name(u32 ethid, char* devname, s32 name_len);

/**
 * One ioctl(2) on an IPv4 datagram socket of its own.
 *
 * @param dwRequest  request code, such as SIOCGIFFLAGS.
 * @param buffer     the request's record, as the code defines it, cast to char* (caddr_t).
 * @retval 0         done.
 * @retval -1        socket(2) or ioctl(2) failed; errno says why.
 */
VIMBRA_API s32 SocketIoctl(u32 dwRequest, char* buffer);

/**
 * Reads an interface's flags, SIOCGIFFLAGS.
 *
 * @param ifname  name; at most 16 bytes are read, of which the kernel takes the first 15.
 * @param flag    receives the IFF_ flags.
 * @retval 0      done.
 * @retval -1     a null argument, or no such interface.
 */
VIMBRA_API s32 IfethGetFlags(char* ifname, u32* flag);

/**
 * Sets an interface's flags, SIOCSIFFLAGS.
 *
 * @param ifname  name, of which the first 15 characters are taken.
 * @param flags   the IFF_ flags; the kernel takes the low 16 bits.
 * @retval 0      done.
 * @retval -1     a null name, no such interface, or no permission.
 */
VIMBRA_API s32 IfethSetFlags(char* ifname, u32 flags);

/**
 * Is a link detected? SIOCETHTOOL with ETHTOOL_GLINK.
 *
 * @param ifname  name, of which the first 15 characters are taken.
 * @param status  receives 1 (link) or 0 (no link).
 * @retval 0      done.
 * @retval -1     a null argument, or no such interface.
 */
VIMBRA_API s32 IfethGetLineStatus(char* ifname, u32* status);

/**
 * Reads the hardware address, SIOCGIFHWADDR.
 *
 * @param pif_name  name; at most 16 bytes are read.
 * @param phw_addr  receives 6 bytes in transmission order.
 * @param pfamily   receives the ARPHRD_ type (1 is Ethernet); may be null.
 * @retval 0        done.
 * @retval -1       a null name or buffer, or no such interface.
 */
VIMBRA_API s32 IfethGetHwAddr(char* pif_name, u8* phw_addr, u16* pfamily);

/**
 * Reads the first IPv4 address, SIOCGIFADDR.
 *
 * @param pif_name  name in a buffer of AT LEAST 16 BYTES: all 16 are read, whatever its length.
 * @param pip_addr  receives the address, network byte order.
 * @retval 0        done.
 * @retval -1       a null argument, no such interface, or it has no IPv4 address.
 */
VIMBRA_API s32 IfethGetIpAddr(char* pif_name, struct in_addr* pip_addr);

VIMBRA_END_DECLS

#endif
