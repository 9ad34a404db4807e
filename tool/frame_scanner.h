// Finds the records of a damaged data file, whatever stands in it.
//
// A frame can stand where a length is that a record may have. A frame counts as strong if its other
// four bytes are those that this library writes, too. From a record the scanner goes on to where
// the next should be. Where none is, it looks byte by byte for a chain of frames that lead to each
// other, and what lies in between is a gap: with its place, its size and the reason it is told, and
// the scan goes on behind it. Where a frame leads into the middle of such a chain, the frame is
// what is wrong.
//
// In a file of fixed length the frames' distance is known, so that the bodies of damaged frames in
// between can be had as well; they are doubtful and are only given on request. Records are found
// up to the end of the file, also behind the end that a header tells; zeros alone up to the end are
// what a purge leaves and no gap.
//
// Every step moves forward, and no number of the file is believed before it was compared with the
// file's size.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/file_bytes.h"

namespace tarsil::tool {

struct found_record {
    int64_t offset = 0; // of the frame
    int32_t length = 0;
    bool is_deleted = false;
    bool is_doubtful = false; // the frame is damaged, and its place is all that speaks for it
};

enum class gap_reason : uint8_t {
    damaged_frames, // of a file of fixed length: whole records whose frames can't be believed
    no_frames,      // bytes that make no records
    cut,            // the file ends within a record
    unreadable      // the system doesn't give the bytes
};
const char* text_of(gap_reason why);

struct gap {
    int64_t offset;
    int64_t bytes;
    gap_reason why;
};

struct gap_list {
    static constexpr size_t most_kept = 1000;

    std::vector<gap> kept;
    int64_t count = 0;
    int64_t bytes = 0;

    void add(const gap& one);
};

struct scan_shape {
    int32_t record_length = 0; // 1 or more, or TS_VARIABLE_LENGTH
    int64_t first = 0;         // where the records begin
    bool with_doubtful = false;
    bool are_strong = true; // the file's frames are: others have to be led to by a sound record
};

class frame_scanner {
public:
    frame_scanner(check::file_bytes& bytes, const scan_shape& shape);

    // The next record, or false at the end of the file.
    bool next(found_record& found);
    int64_t position() const { return position_; }
    const gap_list& gaps() const { return gaps_; }

    // Where the first chain of frames begins at or behind `from`, or the end of the file.
    int64_t find_chain(int64_t from);
    // Whether a frame that leads on can stand here: how the place of the first record is judged.
    bool holds_record(int64_t offset);

private:
    struct frame_look {
        bool is_readable = false;
        bool is_possible = false; // its length could be that of a record here
        bool is_strong = false;
        bool is_cut = false; // strong, but the file ends within its record
        bool is_deleted = false;
        int32_t length = 0;
        int64_t end = 0;
    };

    frame_look look_at(int64_t offset);
    frame_look judge(const unsigned char* bytes, int64_t offset) const;
    bool leads_on(const frame_look& frame);
    bool is_chain(int64_t offset);
    bool is_fixed() const { return shape_.record_length >= 1; }
    bool is_sure(const frame_look& frame);
    bool is_slot() const;
    int64_t distance() const;
    bool take(const frame_look& frame, found_record& found);
    bool take_doubtful(const frame_look& frame, found_record& found);
    void skip_to(int64_t offset, const frame_look& frame);

    check::file_bytes& bytes_;
    scan_shape shape_;
    int64_t size_;
    int64_t zeros_from_; // only zeros from here to the end
    int64_t position_;
    int64_t chain_ = 0; // where the chain begins that was last searched for
    gap_list gaps_;
    std::vector<unsigned char> block_;
};

} // namespace tarsil::tool
