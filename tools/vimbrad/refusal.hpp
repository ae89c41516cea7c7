// How a service says no: an error number that the client receives as the result code.
#ifndef VIMBRA_TOOLS_VIMBRAD_REFUSAL_HPP
#define VIMBRA_TOOLS_VIMBRAD_REFUSAL_HPP

#include <cstring>
#include <stdexcept>
#include <string>

namespace vimbrad {

class Refusal : public std::runtime_error {
 public:
    explicit Refusal(int error) : std::runtime_error(std::strerror(error)), error_(error) {}
    Refusal(int error, const std::string& why) : std::runtime_error(why), error_(error) {}

    // Positive, as in errno.
    int Error() const { return error_; }

 private:
    int error_;
};

}  // namespace vimbrad

#endif
