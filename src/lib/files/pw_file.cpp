#include "lib/files/pw_file.hpp"

#include "lib/files/line_file.hpp"

namespace vimbra {

PasswdLine::PasswdLine(std::string_view line) {
    std::string_view* const texts[] = {&name, &password, &userId, &groupId, &comment, &home};
    for (std::string_view* text : texts) {
        const size_t end = line.find(':');
        // A line that ends early has no newline in its last field.
        *text = Front(line, end == std::string_view::npos ? line.find('\n') : end);
        fields++;
        if (end == std::string_view::npos) {
            line.remove_prefix(text->size());
            shell = line;
            return;
        }
        line.remove_prefix(end + 1);
    }
    shell = line;
    fields++;
}

bool PasswdLine::IsRoot() const {
    return fields >= 4 && userId.starts_with('0') && groupId.starts_with('0');
}

}  // namespace vimbra
