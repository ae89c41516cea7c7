#include <netinet/in.h>
#include <sys/socket.h>
#include <vimbra/common.h>

#include "lib/failure.hpp"
#include "lib/log.hpp"

s32 VimbraSetDscp(u16 wSinFamily, s32 nSockfd, u8 byDscp) {
    switch (wSinFamily) {
        case VIMBRA_FAMILY_IPV4: {
            // The DSCP is the upper six bits of the TOS byte.
            const u8 tos = static_cast<u8>(byDscp << 2);
            if (setsockopt(nSockfd, IPPROTO_IP, IP_TOS, &tos, sizeof(tos)) != 0) {
                VLOG_ERRNO("set dscp failed");
                return VIMBRA_ERR_GENERAL;
            }
            return VIMBRA_OK;
        }
        case VIMBRA_FAMILY_IPV6: {
            // Kept: unshifted, a whole traffic class; the test is SetDscp.DoesNotShiftForIpv6.
            const int trafficClass = byDscp;
            if (setsockopt(nSockfd, IPPROTO_IPV6, IPV6_TCLASS, &trafficClass,
                           sizeof(trafficClass)) != 0) {
                VLOG_ERRNO("set dscpv6 failed");
                return VIMBRA_ERR_GENERAL;
            }
            return VIMBRA_OK;
        }
        default:
            VLOG_ERROR("the wSinFamily %d is invalid!", wSinFamily);
            return vimbra::RefuseArgument(__func__, VIMBRA_ERR_PARAM);
    }
}
