// Upper bounds on what one answer of the phone may cost the head unit: the
// disk it fills, the work and the memory of the search over it.
//
// Real answers stay far below every bound (a disc has at most 99 tracks and
// an answer a few dozen candidate albums); only a broken or hostile answer
// meets one, and then fails the way any unusable answer fails: a debug
// message of its own, the file closed, false (or result state 20 and a
// cancel during reception). The values and the reasoning behind them are in
// docs/response-database.md.
//
// Each bound is a compile-time constant with a default. A build may set
// another value with a definition of the macro (for example
// -DMOX_MAX_SEARCH_WORK=1000000); set it for the whole build, so that the
// tools agree with the module.
#ifndef MOX_PRIVATE_MOXLIMITS_H
#define MOX_PRIVATE_MOXLIMITS_H

#include "HbFramework/HbTypes.h"

// Largest result file, in bytes, that reception stores. The reader's stream
// buffer is as large, so a stored answer is fetched from the kernel once.
#ifndef MOX_MAX_RESULT_FILE_BYTES
#define MOX_MAX_RESULT_FILE_BYTES (1024u * 1024u)
#endif

// Most work one search does, from opening the stored answer to closing it,
// counted in reads from the stream's buffer: one per read through dapFread,
// eight per seek through dapFseek (a system call each), one per UTF-16 unit
// of text that getString converts (and the search may keep).
#ifndef MOX_MAX_SEARCH_WORK
#define MOX_MAX_SEARCH_WORK 5000000u
#endif

// Most tracks one search assembles, over all its albums together; no album's
// track list may hold more entries either.
#ifndef MOX_MAX_SEARCH_TRACKS
#define MOX_MAX_SEARCH_TRACKS 4096u
#endif

class MoxLimits {
public:
    static constexpr uint32 RESULT_FILE_MAX = MOX_MAX_RESULT_FILE_BYTES;
    static constexpr uint32 SEARCH_WORK_MAX = MOX_MAX_SEARCH_WORK;
    static constexpr uint32 SEARCH_TRACK_MAX = MOX_MAX_SEARCH_TRACKS;

    static_assert(RESULT_FILE_MAX > 0, "reception must accept a database");
    static_assert(SEARCH_WORK_MAX > 0, "a search must read its file");
    static_assert(SEARCH_TRACK_MAX > 0, "a search must assemble an album");
};

#endif  // MOX_PRIVATE_MOXLIMITS_H
