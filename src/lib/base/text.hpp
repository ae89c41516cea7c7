// Bounded copies of texts.
#ifndef VIMBRA_LIB_BASE_TEXT_HPP
#define VIMBRA_LIB_BASE_TEXT_HPP

#include <vimbra/types.h>

#include <cstddef>
#include <cstring>

// A view as the arguments of "%.*s".
#define VIMBRA_TEXT(view) static_cast<int>((view).size()), (view).data()

namespace vimbra {

// Fills a zeroed fixed-width field of a record. A text of the field's full width arrives without
// terminator, a longer one is cut; nothing behind the field is touched.
template <size_t N>
void CopyField(char (&field)[N], const char* text) {
    memcpy(field, text, strnlen(text, N));
}

// Like strlcpy: always terminated, cut where there is no room. There is room for the terminator.
inline void CopyText(char* to, size_t size, const char* text) {
    const size_t length = strnlen(text, size - 1);
    memcpy(to, text, length);
    to[length] = '\0';
}

}  // namespace vimbra

#endif
