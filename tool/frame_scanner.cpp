#include "tool/frame_scanner.h"

#include <algorithm>
#include <cstring>

#include "core/letters.h"
#include "data/data_format.h"

namespace tarsil::tool {

namespace {

constexpr int64_t block_bytes = 64 * 1024;
constexpr int64_t unreadable_step = 4096;

// What speaks for a chain. Two strong frames are enough, or one that leads to the end of the
// records; of frames that show nothing but a possible length it takes more than a body could hold
// by chance.
constexpr int strong_weight = 3;
constexpr int possible_weight = 1;
constexpr int end_weight = 3;
constexpr int chain_weight = 6;

int64_t start_of_zeros(check::file_bytes& bytes)
{
    int64_t end = bytes.size();
    while (end > 0) {
        const int64_t from = std::max<int64_t>(end - block_bytes, 0);
        const check::byte_span block = bytes.at(from, end - from);
        size_t last = block.size();
        while (last > 0 && block[last - 1] == 0) --last;
        if (last > 0 || block.empty())
            return block.empty() ? end : from + static_cast<int64_t>(last);
        end = from;
    }
    return 0;
}

} // namespace

const char* text_of(gap_reason why)
{
    switch (why) {
    case gap_reason::damaged_frames: return "the frames are damaged";
    case gap_reason::cut: return "the file ends within this record";
    case gap_reason::unreadable: return "the system can't read this";
    default: return "there are no records here";
    }
}

void gap_list::add(const gap& one)
{
    bytes += one.bytes;
    if (!kept.empty() && kept.size() == static_cast<size_t>(count)) {
        gap& last = kept.back();
        if (last.why == one.why && last.offset + last.bytes == one.offset) {
            last.bytes += one.bytes;
            return;
        }
    }
    ++count;
    if (kept.size() < most_kept) kept.push_back(one);
}

frame_scanner::frame_scanner(check::file_bytes& bytes, const scan_shape& shape)
    : bytes_(bytes), shape_(shape), size_(bytes.size()), zeros_from_(start_of_zeros(bytes)),
      position_(shape.first)
{
}

frame_scanner::frame_look frame_scanner::judge(const unsigned char* bytes, int64_t offset) const
{
    record_frame frame = {};
    std::memcpy(&frame, bytes, sizeof frame);
    frame_look seen;
    seen.is_readable = true;
    seen.length = frame.length;
    seen.is_deleted = frame.mark == mark_deleted;
    const bool is_known_mark = seen.is_deleted || frame.mark == mark_live;
    const bool is_known = is_known_mark && frame.undefined[0] == 0 && frame.undefined[1] == 0 &&
                          frame.undefined[2] == 0;
    const bool is_length = is_fixed() ? frame.length == shape_.record_length : frame.length >= 1;
    seen.end = offset + frame_bytes + frame.length;
    seen.is_possible = is_length && seen.end <= size_;
    seen.is_strong = seen.is_possible && is_known;
    seen.is_cut = is_length && is_known && seen.end > size_;
    return seen;
}

frame_scanner::frame_look frame_scanner::look_at(int64_t offset)
{
    const check::byte_span bytes = bytes_.at(offset, frame_bytes);
    if (!bytes.empty()) return judge(bytes.data(), offset);
    frame_look nothing;
    nothing.is_readable = offset + frame_bytes > size_; // the end, rather than a failed read
    nothing.is_cut = nothing.is_readable;
    return nothing;
}

// Does a record end where another begins, or where all of them end?
bool frame_scanner::leads_on(const frame_look& frame)
{
    if (frame.end >= zeros_from_) return true;
    const frame_look behind = look_at(frame.end);
    return behind.is_cut || (behind.is_possible && (behind.is_strong || !shape_.are_strong));
}

bool frame_scanner::is_chain(int64_t offset)
{
    int weight = 0;
    while (weight < chain_weight) {
        if (offset >= zeros_from_) return weight + end_weight >= chain_weight;
        const frame_look frame = look_at(offset);
        if (frame.is_cut) return weight >= strong_weight;
        if (!frame.is_possible || (shape_.are_strong && !frame.is_strong)) return false;
        weight += frame.is_strong ? strong_weight : possible_weight;
        offset = frame.end;
    }
    return true;
}

// A chain begins with a strong frame where the file's frames are: a mark and its zeros, read four
// bytes too early, can be the length of another one.
int64_t frame_scanner::find_chain(int64_t from)
{
    while (from < zeros_from_) {
        const check::byte_span read = bytes_.up_to(from, block_bytes + frame_bytes);
        if (read.empty()) {
            from += unreadable_step - from % unreadable_step;
            continue;
        }
        if (std::ssize(read) < frame_bytes) break;
        block_.assign(read.begin(), read.end());
        const int64_t places = std::ssize(block_) - frame_bytes + 1;
        for (int64_t i = 0; i < places; ++i) {
            const frame_look seen = judge(block_.data() + i, from + i);
            const bool is_start = shape_.are_strong ? seen.is_strong : seen.is_possible;
            if (is_start && is_chain(from + i)) return from + i;
        }
        from += places;
    }
    return size_;
}

bool frame_scanner::holds_record(int64_t offset)
{
    if (offset < 0 || offset > size_) return false;
    const frame_look frame = look_at(offset);
    return offset == size_ || (frame.is_possible && leads_on(frame));
}

// Is the record's end a place where it can be relied on without a look at what lies in between? A
// wrong length leads to the zeros behind all records easily, but hardly to the very end.
bool frame_scanner::is_sure(const frame_look& frame)
{
    if (is_fixed()) return true;
    const bool ends_in_zeros = frame.end >= zeros_from_ && frame.end < size_;
    return !ends_in_zeros && leads_on(frame);
}

bool frame_scanner::take(const frame_look& frame, found_record& found)
{
    found = {position_, frame.length, frame.is_deleted, false};
    position_ = frame.end;
    return true;
}

int64_t frame_scanner::distance() const
{
    return int64_t{frame_bytes} + std::max(shape_.record_length, 1);
}

// Does a whole number of records fit up to the next sound frames? Then they are gone through one by
// one, as a sound one can stand alone among damaged ones.
bool frame_scanner::is_slot() const
{
    if (!is_fixed()) return false;
    if (chain_ < size_) return (chain_ - position_) % distance() == 0;
    return position_ + distance() <= size_;
}

bool frame_scanner::take_doubtful(const frame_look& frame, found_record& found)
{
    const auto is_zero = [](unsigned char byte) { return byte == 0; };
    const check::byte_span slot = bytes_.at(position_, distance());
    if (!shape_.with_doubtful || std::all_of(slot.begin(), slot.end(), is_zero)) {
        skip_to(position_ + distance(), frame);
        return false;
    }
    found = {position_, shape_.record_length, frame.is_deleted, true};
    position_ += distance();
    return true;
}

void frame_scanner::skip_to(int64_t offset, const frame_look& frame)
{
    gap_reason why = gap_reason::no_frames;
    if (is_fixed() && (offset - position_) % distance() == 0) why = gap_reason::damaged_frames;
    if (frame.is_cut && offset == size_) why = gap_reason::cut;
    if (!frame.is_readable) why = gap_reason::unreadable;
    gaps_.add({position_, offset - position_, why});
    position_ = offset;
}

bool frame_scanner::next(found_record& found)
{
    while (position_ < zeros_from_) {
        const frame_look frame = look_at(position_);
        if (frame.is_possible && is_sure(frame)) return take(frame, found);
        if (position_ >= chain_) chain_ = find_chain(position_ + 1);
        const bool is_alone = frame.is_strong || (frame.is_possible && leads_on(frame));
        if (is_alone && frame.end <= chain_) return take(frame, found);
        if (!is_slot()) {
            skip_to(chain_, frame);
        } else if (take_doubtful(frame, found)) {
            return true;
        }
    }
    return false;
}

} // namespace tarsil::tool
