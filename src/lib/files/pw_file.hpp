// What lines of the password file say.
#ifndef VIMBRA_LIB_FILES_PW_FILE_HPP
#define VIMBRA_LIB_FILES_PW_FILE_HPP

#include <vimbra/types.h>

#include <string_view>

namespace vimbra {

inline constexpr char kPasswdFile[] = "/etc/passwd";

// Fields by position, so that an empty one stays one.
struct PasswdLine {
    explicit PasswdLine(std::string_view line);

    // User and group id begin with "0".
    bool IsRoot() const;

    std::string_view name = "";
    std::string_view password = "";
    std::string_view userId = "";
    std::string_view groupId = "";
    std::string_view comment = "";
    std::string_view home = "";
    std::string_view shell = "";  // the rest of the line, newline included
    u32 fields = 0;               // how many there are, at most 7
};

}  // namespace vimbra

#endif
