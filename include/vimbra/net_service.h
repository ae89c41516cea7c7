/**
 * @file
 * Legacy service calls. Everything that <vimbra/service.h> says holds here too.
 */
#ifndef VIMBRA_NET_SERVICE_H
#define VIMBRA_NET_SERVICE_H

#include <vimbra/service.h>

VIMBRA_BEGIN_DECLS

/** The record of the current call under its older name. */
typedef TVimbraServInfo TServInfo;

/**
 * VimbraServiceStart() under its older name.
 *
 * @param pchServName  not looked at; may be null.
 * @param ptServInfo   the service.
 * @retval 0           done, and inetd told.
 * @retval 1105        a null record, a null name, or port 0.
 * @retval -1          as VimbraServiceStart().
 */
VIMBRA_API s32 NetServiceStart(char* pchServName, TServInfo* ptServInfo);

/**
 * VimbraServiceStop() under its older name.
 *
 * @param pchServName  the service.
 * @param wPort        not looked at.
 * @retval 0           as VimbraServiceStop().
 * @retval 1105        a null name.
 * @retval -1          as VimbraServiceStop().
 */
VIMBRA_API s32 NetServiceStop(char* pchServName, u16 wPort);

VIMBRA_END_DECLS

#endif
