// The last step of a compaction: new files, all whole, take the places of a data file and of its
// index files, as one step.
//
// A rename replaces one file; several need a plan that survives an interruption. It is a small
// journal beside the data file, DATA.compacting, that is on stable storage before the first rename.
// Then each index file steps aside, the new data file takes its place, and the new index files take
// theirs. So whatever stands under the names fits together at every moment: an index file may be
// missing for a while, but none ever belongs to another data file. The next command of this tool
// on these files finishes what the journal says; or puts everything back, if the data file has
// been changed meanwhile by a program that knows nothing of this.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/failure.h"
#include "tool/file_guard.h"

namespace tarsil::tool {

inline constexpr const char* compacted_ending = ".compacted";

// What tells whether a file is still the one that it was.
struct file_state {
    uint64_t inode = 0;
    int64_t bytes = 0;
    int64_t changed = 0; // nanoseconds

    bool operator==(const file_state&) const = default;
};

struct exchange {
    std::string place;   // where the file stands; the new one is `place`.compacted
    file_state old_file; // at `place` when the plan was made
    file_state new_file;

    std::string made() const { return place + compacted_ending; }
    std::string aside() const { return place + ".before-compaction"; }
};

// The first exchange is that of the data file.
using exchange_plan = std::vector<exchange>;

// Puts the plan on stable storage, carries it out and removes what it leaves. The old files are
// held alone by the caller. Once it is planned the new files are needed, whatever fails: the next
// command finishes it.
outcome carry_out(exchange_plan plan, bool& is_planned);

// A compaction of this data file that was interrupted, for commands that only look.
struct pending_exchange {
    std::string text; // what is to be said; empty if there is none
    std::vector<std::pair<std::string, std::string>> stand_ins;

    // The file to look at for the one of this name: what it is about to become.
    std::string current(const std::string& name) const;
    bool operator==(const pending_exchange&) const = default;
};
pending_exchange pending_compaction(const std::string& data);

// Finishes or undoes an interrupted compaction of this data file, if there is one, and tells so.
outcome settle_compaction(const std::string& data, double wait_seconds);

} // namespace tarsil::tool
