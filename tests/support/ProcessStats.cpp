#include "ProcessStats.h"

#include <dirent.h>
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

ProcessStats::Snapshot ProcessStats::take() {
    Snapshot snapshot;
    snapshot.descriptors = openDescriptors();
    snapshot.threads = threadCount();
    snapshot.residentKiB = statusKiB("VmRSS:");
    snapshot.peakResidentKiB = statusKiB("VmHWM:");
    snapshot.anonymousResidentKiB = statusKiB("RssAnon:");
    snapshot.heapInUseBytes = heapInUseBytes();
    return snapshot;
}

// Counts the main arena only, plus blocks mapped on their own; blocks of the
// other threads' arenas are not in mallinfo2.
uint64_t ProcessStats::heapInUseBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<uint64_t>(info.uordblks) + static_cast<uint64_t>(info.hblkhd);
}

// opendir() holds one descriptor of its own while the list is read.
size_t ProcessStats::openDescriptors() {
    const size_t entries = countEntries("/proc/self/fd");
    return entries == 0 ? 0 : entries - 1;
}

size_t ProcessStats::threadCount() {
    return countEntries("/proc/self/task");
}

uint64_t ProcessStats::statusKiB(const std::string& field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, field.size(), field) == 0) {
            return std::strtoull(line.c_str() + field.size(), nullptr, 10);
        }
    }
    return 0;
}

std::map<int, ProcessStats::Switches> ProcessStats::switches() {
    std::map<int, Switches> out;
    DIR* directory = opendir("/proc/self/task");
    if (directory == nullptr) {
        return out;
    }
    while (dirent* entry = readdir(directory)) {
        const int tid = std::atoi(entry->d_name);
        Switches counts;
        if (tid > 0 && readSwitches(tid, &counts)) {
            out[tid] = counts;
        }
    }
    closedir(directory);
    return out;
}

std::map<int, ProcessStats::Switches> ProcessStats::threadsNamed(const std::string& name) {
    std::map<int, Switches> out;
    for (const auto& entry : switches()) {
        if (entry.second.name == name) {
            out.insert(entry);
        }
    }
    return out;
}

size_t ProcessStats::countEntries(const char* path) {
    DIR* directory = opendir(path);
    if (directory == nullptr) {
        return 0;
    }
    size_t count = 0;
    while (dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            ++count;
        }
    }
    closedir(directory);
    return count;
}

bool ProcessStats::readSwitches(int tid, Switches* out) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/status");
    if (!in) {
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        if (key == "Name:") {
            std::getline(fields >> std::ws, out->name);
        } else if (key == "State:") {
            fields >> out->state;
        } else if (key == "voluntary_ctxt_switches:") {
            fields >> out->voluntary;
        } else if (key == "nonvoluntary_ctxt_switches:") {
            fields >> out->involuntary;
        }
    }
    return true;
}
