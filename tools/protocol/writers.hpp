// The whole protocol, written for people, for a packet analyser, for programs.
#ifndef VIMBRA_TOOLS_PROTOCOL_WRITERS_HPP
#define VIMBRA_TOOLS_PROTOCOL_WRITERS_HPP

#include <ostream>

#include "record.hpp"

namespace protocol {

void WriteMarkdown(std::ostream& out);
// A dissector in Lua.
void WriteDissector(std::ostream& out);
void WriteJson(std::ostream& out);

// What a kind of field is called there.
const char* NameOf(Kind kind);

}  // namespace protocol

#endif
