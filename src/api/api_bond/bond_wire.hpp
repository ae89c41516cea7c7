// Requests of the bonding service.
#ifndef VIMBRA_API_BOND_WIRE_HPP
#define VIMBRA_API_BOND_WIRE_HPP

#include "lib/wire.hpp"

namespace vimbra::wire {

enum : u32 {
    kBondStart = 3841,
    kBondStop = 3842,  // no body
};

// kBondStart has a body of words (u32) and texts, one after the other without padding; a text is a
// word with its length, terminator included, and the characters with their terminator:
//     word  length of the whole body
//     word  bonding mode
//     text  control path
//     word  number of members
//     text  name, once for each member
//     text  name of the active member

}  // namespace vimbra::wire

#endif
