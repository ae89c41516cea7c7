/**
 * @file
 * Legacy names of the calls in <vimbra/common.h>: interfaces by number, IPv4 words. Everything that
 * it says holds here too.
 */
#ifndef VIMBRA_NET_COMMON_H
#define VIMBRA_NET_COMMON_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/**
 * VimbraInit() under its older name.
 *
 * @retval 0   ready, now or before.
 * @retval -1  the version text could not be built.
 */
VIMBRA_API s32 NetInit(void);

/**
 * VimbraLogSwitch() under its older name.
 *
 * @param dwSwitch  VIMBRA_LEVEL_NONE (0) to VIMBRA_LEVEL_DEBUG (5).
 * @retval 0        done.
 * @retval -1       as VimbraLogSwitch().
 * @retval 1101     the request could not be written whole.
 * @retval 1102     no reply within 60 seconds.
 * @retval >0       any other: the byte count of a malformed answer.
 */
VIMBRA_API s32 NetLogSwitch(u32 dwSwitch);

/**
 * The version text; VimbraQueryVersion() is this call.
 *
 * @param pch_ver  receives the text with its terminator; cleared whole first.
 * @param buf_len  size of pch_ver in bytes.
 * @retval 0       done.
 * @retval -1      a null buffer, or one without room for text and terminator: it stays cleared.
 */
VIMBRA_API s32 NetQueryVersion(char* pch_ver, u32 buf_len);

/**
 * VimbraIfaceShutdown() of a numbered interface.
 *
 * @param byEthId  0, 1 or 2.
 * @retval 0       done.
 * @retval -1      no such interface in the kernel, or no permission.
 * @retval 1201    there is no interface of this number.
 */
VIMBRA_API s32 NetInterfaceShutdown(u32 byEthId);

/**
 * VimbraIfaceNoShutdown() of a numbered interface.
 *
 * @param byEthId  0, 1 or 2.
 * @retval 0       done.
 * @retval -1      no such interface in the kernel, or no permission.
 * @retval 1201    there is no interface of this number.
 */
VIMBRA_API s32 NetInterfaceNoShutdown(u32 byEthId);

/**
 * VimbraGetIfaceState() of a numbered interface.
 *
 * @param nEthNum  0, 1 or 2.
 * @param pdwFlag  receives 1 (up) or 2 (down).
 * @retval 0       done.
 * @retval -1      no such interface in the kernel.
 * @retval 1105    a null pointer.
 * @retval 1201    there is no interface of this number.
 */
VIMBRA_API s32 NetGetEthState(s32 nEthNum, u32* pdwFlag);

/**
 * VimbraCheckIsSameNet() of IPv4 words in network byte order.
 *
 * @param dwIpAddr   the address.
 * @param dwMask     a PREFIX LENGTH, 1 to 32, despite its name: a dotted mask is refused with -1.
 * @param dwGateway  the gateway, or 0 for none.
 * @retval 0         they lie in one subnet, or there is no gateway.
 * @retval 1111      they do not.
 * @retval 1105      a prefix length of 0.
 * @retval -1        a prefix length above 32.
 */
VIMBRA_API s32 NetCheckTheSameNet(u32 dwIpAddr, u32 dwMask, u32 dwGateway);

VIMBRA_END_DECLS

#endif
