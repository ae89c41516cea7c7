// What stood in the resolver configuration before the first lease's DNS servers took its place.
#ifndef VIMBRA_TOOLS_VIMBRAD_RESOLVER_MEMORY_HPP
#define VIMBRA_TOOLS_VIMBRAD_RESOLVER_MEMORY_HPP

namespace vimbrad {

class RunDirectory;

// Before servers of ours come; what is noted already is older, and stays.
void NoteResolver(const RunDirectory& runDir);
// When servers of ours have gone: as it was noted, if nobody's are left.
void PutResolverBack(const RunDirectory& runDir);

}  // namespace vimbrad

#endif
