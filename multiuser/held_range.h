// A range that a step may have placed: lock-if-needed and release-if-placed, as every function uses
// them.
//
//     held_range bracket;
//     int32_t code = lock_if_needed(bracket, header_bracket(data_handle));
//     if (code < 0) return code;
//     ... the guarded steps ...
//     code = release_if_placed(bracket);
//
// In single-user mode lock_if_needed answers 0 and does nothing, so that no function tests the mode
// for its locks. A range that was covered already stays with whoever placed it. release_if_placed
// is the visible step and gives back once. The destructor gives back what an early return left
// behind and drops that code, so that the first failure wins. Where a file is closed on the way
// out, the release stands before the close.
#pragma once

#include <cstdint>

#include "core/tables.h"
#include "multiuser/range_lock.h"

namespace tarsil {

class held_range {
public:
    held_range() = default;
    held_range(const held_range&) = delete;
    held_range& operator=(const held_range&) = delete;
    ~held_range()
    {
        if (placed_) give_back_silently();
    }

    // Leaves a placed range standing past the end of this object, for the operations that say so.
    void keep() { placed_ = false; }

    friend int32_t lock_if_needed(held_range& held, const file_range& range);
    friend int32_t release_if_placed(held_range& held);
    friend void release_insistently(held_range& held);

private:
    void give_back_silently();

    file_range range_{};
    bool placed_ = false;
};

// 1 placed, 0 covered (or single-user mode), else range_lock's code.
[[nodiscard]] int32_t lock_if_needed(held_range& held, const file_range& range);

// 0, or range_lock's code. Either way the object holds nothing afterwards.
[[nodiscard]] int32_t release_if_placed(held_range& held);

// The same where the work is done and a failed release is not reported: it is asked for once more
// and then left alone.
void release_insistently(held_range& held);

// The brackets by name. The header bracket is exactly the 24 bytes of the data_header; a whole-file
// bracket also covers what is appended under it.
file_range header_bracket(int32_t data_handle);
file_range whole_data_file(int32_t data_handle);
file_range whole_index_file(int32_t data_handle, int32_t index_handle);

// A range of the data file or of an index file; `offset` may be at_file_position.
file_range data_range(int32_t data_handle, int32_t offset, int32_t length);
file_range index_range(int32_t data_handle, int32_t index_handle, int32_t offset, int32_t length);

} // namespace tarsil
