// The daemon from its start to its end.
#ifndef VIMBRA_TOOLS_VIMBRAD_LIFE_HPP
#define VIMBRA_TOOLS_VIMBRAD_LIFE_HPP

#include <memory>
#include <optional>

#include "operators.hpp"
#include "options.hpp"
#include "overview.hpp"
#include "readiness.hpp"
#include "rendezvous.hpp"
#include "run_dir.hpp"
#include "server.hpp"
#include "service.hpp"
#include "state.hpp"
#include "uv.hpp"

namespace vimbrad {

// An end has three steps. Programs end, which may take seconds, and applications that listen are
// told; then settings of the kernel are taken back; then what applications are told has to arrive.
// With --keep there is none of them.
class Life {
 public:
    // Ready to serve. Throws what is in the way.
    Life(uv_loop_t* loop, const Options& options);
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    // Serves until a signal ends it.
    void Run();

 private:
    UvHandle<uv_signal_t> EndOn(int signal);
    void End();
    void Keep();
    void ProgramsEnded();
    void AwaitDeliveries();

    uv_loop_t* loop_;
    bool keep_;
    // Not after the socket: whichever signal comes from then on, the socket is removed.
    UvHandle<uv_signal_t> terminate_;
    UvHandle<uv_signal_t> interrupt_;
    UvHandle<uv_timer_t> deadline_;
    UvHandle<uv_timer_t> nextStep_;
    Readiness readiness_;
    RunDirectory runDir_;
    // Before the socket of applications: whom they find, operators find too. Questions wait for Run().
    std::optional<Operators> operators_;
    Rendezvous rendezvous_;
    Registry registry_;
    // Its connections outlive the services, which answer what they still owe.
    std::optional<Server> server_;
    State::Services services_;
    State state_;
    std::optional<Overview> overview_;
    bool ending_ = false;
};

}  // namespace vimbrad

#endif
