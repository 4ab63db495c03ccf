// The module's bounds on what it stores and on what one album search may
// spend, as the tools that read a stored answer apply them
// (tests/cli/StoredSearchTest.cpp checks that they are the module's).
#ifndef MOX_TOOLS_MODULELIMITS_H
#define MOX_TOOLS_MODULELIMITS_H

#include <cstdint>

struct ModuleLimits {
    // Largest result file the module stores from the phone (1 MiB).
    static constexpr uint32_t kResultFileMax = 1024u * 1024u;
    // Work of one search: reads, seeks (8 each) and converted text units.
    static constexpr uint32_t kSearchWorkMax = 5000000u;
    // Tracks one search may assemble, over all its albums.
    static constexpr uint32_t kSearchTrackMax = 4096u;
};

#endif  // MOX_TOOLS_MODULELIMITS_H
