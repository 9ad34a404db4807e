// Copies from and to mapped files, and looks at them, that can fail but never end the process. What
// is said of copies here holds for looks.
//
// A page of a mapped file can go away under its mapping: somebody cuts the file, or the medium
// fails to give the page. The kernel then raises a bus error in the midst of our copy. While any
// file is mapped a handler of ours stands for that signal. It answers only for addresses inside the
// copy in progress: it lays fresh zero pages over the place, so that the copy comes to its end, and
// notes that it has failed. Every other bus error goes to whoever stood there before.
//
// One thread at a time is inside the library, so one record of the copy in progress is enough; that
// other threads meet bus errors of their own meanwhile does no harm to it.
#pragma once

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarsil::platform {

// Makes the handler stand for one more mapped file. False if it could not be relied on: the signal
// is blocked in this thread, so that the kernel would end the process without asking us; or
// somebody has put a handler above ours since, which need not pass on what it gets.
bool stand_guard();

// The handler stands for one mapped file less; with the last one it goes, unless somebody is above.
void leave_guard();

// The mapped bytes that are being copied, for the handler alone. All zero between the copies.
struct copy_in_progress {
    uintptr_t begin;
    uintptr_t end;
    sig_atomic_t has_failed;
};

extern volatile copy_in_progress guarded_copy;

// Nothing of the compiler's moves across these two, so that every access to the mapping lies
// between them. The pages up to the end of the range's last page may be looked at as well.
inline void begin_guarded_copy(const uint8_t* mapped, size_t bytes)
{
    guarded_copy.begin = reinterpret_cast<uintptr_t>(mapped);
    guarded_copy.end = reinterpret_cast<uintptr_t>(mapped) + bytes;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// True if every page was there. Else zeros were read, or nothing is known of what was stored.
inline bool end_guarded_copy()
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    guarded_copy.end = 0;
    if (guarded_copy.has_failed == 0) [[likely]]
        return true;
    guarded_copy.has_failed = 0;
    return false;
}

} // namespace tarsil::platform
