// Every service of the daemon. A new one is a file beside this, a line here and a line in
// AllServices().
#ifndef VIMBRA_TOOLS_VIMBRAD_SERVICES_HPP
#define VIMBRA_TOOLS_VIMBRAD_SERVICES_HPP

#include <memory>
#include <vector>

#include "service.hpp"

namespace vimbrad {

std::unique_ptr<Service> MakeAddressService(const Context& context);
std::unique_ptr<Service> MakeBondService(const Context& context);
std::unique_ptr<Service> MakeConflictService(const Context& context);
std::unique_ptr<Service> MakeDhcpClientService(const Context& context);
std::unique_ptr<Service> MakeDhcpServerService(const Context& context);
std::unique_ptr<Service> MakeGatewayService(const Context& context);
std::unique_ptr<Service> MakeLinkService(const Context& context);
std::unique_ptr<Service> MakeLogLevelService(const Context& context);
std::unique_ptr<Service> MakeNtpService(const Context& context);
std::unique_ptr<Service> MakePingService(const Context& context);
std::unique_ptr<Service> MakePppoeService(const Context& context);
std::unique_ptr<Service> MakeReportService(const Context& context);
std::unique_ptr<Service> MakeRouteService(const Context& context);
std::unique_ptr<Service> MakeRouterAdvertisementService(const Context& context);
std::unique_ptr<Service> MakeRuleService(const Context& context);
std::unique_ptr<Service> MakeStatisticsService(const Context& context);
std::unique_ptr<Service> MakeTracerouteService(const Context& context);
std::unique_ptr<Service> MakeWebService(const Context& context);

std::vector<std::unique_ptr<Service>> AllServices(const Context& context);

}  // namespace vimbrad

#endif
