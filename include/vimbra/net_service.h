/**
 * @file
 * Legacy service calls; see <vimbra/service.h>.
 */
#ifndef VIMBRA_NET_SERVICE_H
#define VIMBRA_NET_SERVICE_H

#include <vimbra/service.h>

VIMBRA_BEGIN_DECLS

/** The record of the current call under its older name. */
typedef TVimbraServInfo TServInfo;

/**
 * VimbraServiceStart() under its older name; same results.
 *
 * @param pchServName  not looked at; may be null.
 * @param ptServInfo   the service.
 */
VIMBRA_API s32 NetServiceStart(char* pchServName, TServInfo* ptServInfo);

/**
 * VimbraServiceStop() under its older name; same results.
 *
 * @param pchServName  the service.
 * @param wPort        not looked at.
 */
VIMBRA_API s32 NetServiceStop(char* pchServName, u16 wPort);

VIMBRA_END_DECLS

#endif
