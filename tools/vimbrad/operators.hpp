// The operators' socket in the run directory: questions about what the daemon does, one JSON object
// a line, answered in the same way. Nothing that is asked there changes anything.
#ifndef VIMBRA_TOOLS_VIMBRAD_OPERATORS_HPP
#define VIMBRA_TOOLS_VIMBRAD_OPERATORS_HPP

#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "run_dir.hpp"
#include "service.hpp"
#include "uv.hpp"

namespace vimbrad {

inline constexpr char kOperatorsName[] = "status";

class Operators {
 public:
    // Answers a question; throws Refusal for one that is none.
    using Ask = std::function<Json(const Json& question)>;

    Operators(uv_loop_t* loop, const RunDirectory& runDir, Ask ask);
    ~Operators();
    Operators(const Operators&) = delete;
    Operators& operator=(const Operators&) = delete;

    // The answer to a line, whatever it holds.
    std::string AnswerTo(std::string_view line) const;

 private:
    class Connection;

    void Accept();
    void Drop(const Connection* connection);

    uv_loop_t* loop_;
    Ask ask_;
    std::list<std::shared_ptr<Connection>> connections_;
    UvHandle<uv_pipe_t> listener_;
};

}  // namespace vimbrad

#endif
