// Who has a file open, and which ranges of it are locked: for the one line that names the process
// which was in the way, and for the command that lists locks.
//
// The kernel doesn't tell the holder of a lock that belongs to an open of a file: /proc/locks shows
// -1 for its process. But each descriptor under /proc/PID/fdinfo shows the locks of its own open.
// So all processes are looked through. Those of other users show nothing unless the one who asks is
// root, and a process that shares the open with its parent is shown beside it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/failure.h"

namespace tarsil::tool {

struct held_bytes {
    int64_t first = 0;
    int64_t last = 0; // the greatest number there is for "to the end and beyond"
    bool is_exclusive = false;
};

struct holder {
    int pid = 0;
    std::string program;            // as the process calls itself
    std::vector<held_bytes> ranges; // empty: open without a lock
    bool is_alone = false;          // holds the file for itself, in single-user mode
    bool is_sharing = false;        // has it open as the library does in multi-user mode
};

struct holders {
    std::vector<holder> known;
    bool are_some_hidden = false; // there are processes that may not be looked at
    bool is_hidden_lock = false;  // a lock on the file whose holder was not found
};

// The processes, but for this one, that have the file open.
holders holders_of(const std::string& name);

// "1234 (server), 1240 (tarsil)", or words for not knowing.
std::string names_of(const holders& found);

} // namespace tarsil::tool
