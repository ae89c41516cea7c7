/**
 * @file
 * Legacy names of the calls in <vimbra/common.h>: interfaces by number, IPv4 words.
 */
#ifndef VIMBRA_NET_COMMON_H
#define VIMBRA_NET_COMMON_H

#include <vimbra/types.h>

VIMBRA_BEGIN_DECLS

/** VimbraInit() under its older name; same results. */
VIMBRA_API s32 NetInit(void);

/** VimbraLogSwitch() under its older name; same results. */
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
 * @retval 1201    there is no such interface. Other results as VimbraIfaceShutdown().
 */
VIMBRA_API s32 NetInterfaceShutdown(u32 byEthId);

/**
 * VimbraIfaceNoShutdown() of a numbered interface.
 *
 * @param byEthId  0, 1 or 2.
 * @retval 1201    there is no such interface. Other results as VimbraIfaceNoShutdown().
 */
VIMBRA_API s32 NetInterfaceNoShutdown(u32 byEthId);

/**
 * VimbraGetIfaceState() of a numbered interface.
 *
 * @param nEthNum  0, 1 or 2.
 * @param pdwFlag  receives 1 (up) or 2 (down).
 * @retval 1201    there is no such interface. Other results as VimbraGetIfaceState().
 */
VIMBRA_API s32 NetGetEthState(s32 nEthNum, u32* pdwFlag);

/**
 * VimbraCheckIsSameNet() of IPv4 words in network byte order.
 *
 * @param dwIpAddr   the address.
 * @param dwMask     a PREFIX LENGTH, 1 to 32, despite its name: a dotted mask is refused with -1.
 * @param dwGateway  the gateway, or 0 for none.
 * Results as VimbraCheckIsSameNet().
 */
VIMBRA_API s32 NetCheckTheSameNet(u32 dwIpAddr, u32 dwMask, u32 dwGateway);

VIMBRA_END_DECLS

#endif
