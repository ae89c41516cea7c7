#include "services/services.hpp"

namespace vimbrad {

std::vector<std::unique_ptr<Service>> AllServices(const Context& context) {
    std::vector<std::unique_ptr<Service>> services;
    for (const auto make :
         {MakeAddressService, MakeBondService, MakeConflictService, MakeDhcpClientService,
          MakeDhcpServerService, MakeGatewayService, MakeLinkService, MakeLogLevelService,
          MakeNtpService, MakePingService, MakePppoeService, MakeReportService, MakeRouteService,
          MakeRouterAdvertisementService, MakeRuleService, MakeStatisticsService,
          MakeTracerouteService, MakeWebService}) {
        services.push_back(make(context));
    }
    return services;
}

}  // namespace vimbrad
