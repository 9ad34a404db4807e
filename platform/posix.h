// What the files of the POSIX implementation share: the table of open files and the few steps that
// more than one of them takes. Nothing outside this folder includes this header.
//
// A handle is an index into open_files. Each entry owns one descriptor, and with it one open file
// description, to which the kernel ties the locks; so two handles of one process exclude each other
// exactly as two processes do. The position is ours: transfers are positional, and a forked child
// that shares the description can't move it. The ledger `held` is needed because the kernel merges
// neighbouring ranges of one description, splits them at a partial unlock and grants an unlock of
// nothing: what overlaps and what may be released is decided here, before the kernel is asked.
//
// Steps that return bool tell the cause of a false in last_error; steps that return a descriptor
// tell it in errno. Needs 64-bit file offsets, also where the machine has 32 bits
// (_FILE_OFFSET_BITS=64).
#pragma once

#include "platform/mapping.h"
#include "platform/platform.h"

#include <sys/types.h>

namespace tarsil::platform {

static_assert(sizeof(off_t) == 8, "the share byte lies at 2^40: build with _FILE_OFFSET_BITS=64");

inline constexpr int32_t open_file_limit = 256;
inline constexpr int32_t held_range_limit = 16;

// lost: the process was forked after the open, and this is the child. The entry stays taken until
// its holder closes it, so that a stale number never comes to mean another file.
enum class handle_state : uint8_t { free, open, lost };

struct held_bytes {
    int32_t offset;
    int32_t length;
};

struct open_file {
    handle_state state;
    bool is_alone;       // nobody else may open the file
    bool flush_failed;   // a flush has failed once, so none may succeed any more
    bool name_is_stable; // the directory entry has been flushed through this handle
    int descriptor;
    file_view view; // how bytes get there and back, if not by system calls
    int32_t position;
    int32_t held_count;
    held_bytes held[held_range_limit];
};

extern open_file open_files[open_file_limit];

// The smallest page of any machine; larger ones end where one of these ends, too.
inline constexpr int64_t page_bytes = 4096;

// Whether bytes from `from` up to `end` lie in more than one page.
inline bool crosses_page(int64_t from, int64_t end)
{
    return end > from && from / page_bytes != (end - 1) / page_bytes;
}

// The entry of an open file; none for any other number.
inline open_file* find_open(file_handle file)
{
    if (file < 0 || file >= open_file_limit) return nullptr;
    open_file* const entry = &open_files[file];
    return entry->state == handle_state::open ? entry : nullptr;
}

// Notes the system's number of a failure for GetLastError and answers false.
bool refuse(int error);

// Closes a descriptor on the way out of a failure: errno stays what it was. The answer is always
// -1.
int abandon(int descriptor);

// Makes sure that a forked child finds its handles lost. False if the system has no room for the
// handler.
bool watch_forks();

// The limit that the system sets to the size of files, at most max_file_bytes: read at each open,
// then asked before what could pass it.
int64_t read_size_limit();
bool within_size_limit(int64_t end);

// The size of the file, which may be more than positions reach; below 0 for a failure.
int64_t file_size(open_file& entry);

// open(2) without what a library must not do to its caller: no controlling terminal, no descriptor
// that an exec hands on or that a print to a closed standard stream would hit, no waiting at a
// pipe. Only regular files; -1 for all else.
int open_regular(const char* name, int flags);

// Whether `name` leads to the very file that is open under the descriptor.
bool still_named(const char* name, int descriptor);

// Takes the share byte as the mode asks for it, at once or not at all.
bool take_share(int descriptor, access wanted_access, share wanted_share);

// Creates the file and takes its share byte, before its name can be seen wherever the file system
// lets us.
int create_descriptor(const char* name, share wanted_share);

// F_OFD_SETLK with retries: sets (F_RDLCK, F_WRLCK) or ends (F_UNLCK) a lock. Never called with a
// length of 0, which the kernel would read as "to infinity".
bool set_kernel_lock(int descriptor, int type, off_t offset, off_t length);

// Ends every lock of the file description at once, also for forked children that share it.
void release_kernel_locks(int descriptor);

} // namespace tarsil::platform
