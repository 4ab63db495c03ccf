// What the kernel says about this process: open descriptors, threads,
// resident memory and every thread's context switches (from /proc/self);
// and what the C library's allocator has handed out.
//
//   const ProcessStats::Snapshot before = ProcessStats::take();
//   ...
//   EXPECT_EQ(ProcessStats::take().threads, before.threads);
//
// Plain functions; any thread.
#ifndef MOX_TESTS_PROCESSSTATS_H
#define MOX_TESTS_PROCESSSTATS_H

#include <cstdint>
#include <map>
#include <string>

class ProcessStats {
public:
    // One thread's context switches, from /proc/self/task/TID/status.
    struct Switches {
        std::string name;          // "Name:" (the thread's name)
        char state = '?';          // "State:" letter: 'S' sleeping, 'R' running, ...
        uint64_t voluntary = 0;    // "voluntary_ctxt_switches:"
        uint64_t involuntary = 0;  // "nonvoluntary_ctxt_switches:"
    };

    struct Snapshot {
        size_t descriptors = 0;    // entries of /proc/self/fd (the one used to list it excluded)
        size_t threads = 0;        // entries of /proc/self/task
        uint64_t residentKiB = 0;  // "VmRSS:" of /proc/self/status
        uint64_t peakResidentKiB = 0;  // "VmHWM:" of /proc/self/status
        // "RssAnon:": the resident part that is the process's own data (heap,
        // stacks); the rest of VmRSS is program and library code mapped from
        // files, which grows as code runs for the first time.
        uint64_t anonymousResidentKiB = 0;
        // Bytes that the C library's allocator has handed out and not had
        // back (mallinfo2: small blocks and mapped ones): what the program
        // holds, apart from what the allocator keeps for reuse.
        uint64_t heapInUseBytes = 0;
    };

    static Snapshot take();
    static size_t openDescriptors();
    static size_t threadCount();
    static uint64_t heapInUseBytes();
    // A "NAME: N kB" field of /proc/self/status, in KiB; 0 when absent.
    static uint64_t statusKiB(const std::string& field);
    // Every thread of the process by its id.
    static std::map<int, Switches> switches();
    // The ids of the threads named `name`.
    static std::map<int, Switches> threadsNamed(const std::string& name);

private:
    static size_t countEntries(const char* directory);
    static bool readSwitches(int tid, Switches* out);
};

#endif  // MOX_TESTS_PROCESSSTATS_H
