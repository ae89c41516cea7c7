// Notes why a call fails, for the application to ask: once for each failure, where the outcome is
// known, and never on the way of a success.
#ifndef VIMBRA_LIB_FAILURE_HPP
#define VIMBRA_LIB_FAILURE_HPP

#include <vimbra/failure.h>

namespace vimbra {

// The call is the function that failed, as its log lines name it.
void NoteFailure(const char* call, EVimbraFailureStep step, int error = 0);
void NoteRefusal(const char* call, s32 daemonCode);

// What was noted last failed for this function, which applications know better than the mechanism
// behind it.
void NameFailure(const char* call);

// What fails in its scope does not fail the call: nothing of it stays noted.
class IgnoredFailure {
 public:
    IgnoredFailure();
    ~IgnoredFailure();
    IgnoredFailure(const IgnoredFailure&) = delete;
    IgnoredFailure& operator=(const IgnoredFailure&) = delete;

 private:
    const TVimbraFailure before_;
};

// The result of a call whose argument is refused.
[[nodiscard]] s32 RefuseArgument(const char* call, s32 result);

}  // namespace vimbra

#endif
