// Where the frames of a data file stand, as a walk over them found it.
//
// As long as all frames stand at one distance, as in every sound file of fixed length, the list is
// three numbers; from the first frame on that doesn't, it is four bytes a record.
#pragma once

#include <cstdint>
#include <vector>

namespace tarsil::check {

struct frame_list {
    int64_t listed = 0; // frames up to the end that the header tells; those behind are its tail
    int64_t longest_body = 0; // of all frames

    // Frames come in the order of the file.
    void add(int64_t offset, int64_t body_bytes);
    int64_t count() const { return frames; }

    // The index from 0 of the frame at an offset, or -1 if none begins there.
    int64_t index_at(int64_t offset) const;
    int64_t offset_of(int64_t index) const;

private:
    bool is_even() const { return offsets.empty(); }
    void spell_out();

    int64_t frames = 0;
    int64_t first = 0;
    int64_t distance = 0;
    std::vector<int32_t> offsets; // of all frames, once they aren't at one distance
};

} // namespace tarsil::check
