// What operators are told.
#ifndef VIMBRA_TOOLS_VIMBRAD_OVERVIEW_HPP
#define VIMBRA_TOOLS_VIMBRAD_OVERVIEW_HPP

#include "server.hpp"
#include "service.hpp"
#include "state.hpp"

namespace vimbrad {

class Overview {
 public:
    Overview(const State::Services& services, const Registry& registry, const Server& server);

    // Throws Refusal for a question that is none.
    Json Answer(const Json& question) const;

 private:
    Json Daemon() const;
    Json LastRefusal(pid_t pid) const;

    const State::Services& services_;
    const Registry& registry_;
    const Server& server_;
    u64 start_;
};

}  // namespace vimbrad

#endif
