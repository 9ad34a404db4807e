#include "tool/damaged_file.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "data/data_format.h"

namespace tarsil::tool {

namespace {

constexpr unsigned char expected_version = 0x2A;
constexpr int64_t sample_records = 1000;

struct header_guess {
    bool has_mark = false;
    bool has_header = false;
    data_header header{};
    int64_t first = 0; // where the header's field table ends, if that can be
};

bool is_printable(int32_t letter) { return letter >= 0x20 && letter < 0x7F; }

bool can_be_length(int32_t length) { return length >= 1 || length == TS_VARIABLE_LENGTH; }

// The entries of a field table that ends where the first record stands; none if it can't be one.
// Where the mark speaks for the header, letters that mean nothing are as good as others.
std::vector<field_entry> table_up_to(check::file_bytes& bytes, int64_t first, bool has_mark)
{
    std::vector<field_entry> table;
    const int64_t count = first - field_table_offset;
    const check::byte_span stored = bytes.at(field_table_offset, count);
    if (count % field_entry_bytes != 0 || stored.empty()) return table;
    table.resize(static_cast<size_t>(count / field_entry_bytes));
    std::memcpy(table.data(), stored.data(), stored.size());
    const bool can_be = std::all_of(table.begin(), table.end(), [](const field_entry& one) {
        return one.length >= 1 && is_printable(one.type);
    });
    if (!can_be && !has_mark) table.clear();
    return table;
}

header_guess read_header(check::file_bytes& bytes)
{
    header_guess guess;
    const check::byte_span start = bytes.at(0, field_table_offset);
    if (start.empty()) return guess;
    guess.has_mark = start[0] == expected_version &&
                     std::memcmp(start.data() + 1, data_magic, sizeof data_magic) == 0;
    std::memcpy(&guess.header, start.data() + data_header_offset, sizeof guess.header);
    const int64_t first = int64_t{field_table_offset} + guess.header.field_bytes;
    guess.has_header = guess.header.field_bytes >= 0 &&
                       guess.header.field_bytes % field_entry_bytes == 0 && first <= bytes.size();
    guess.first = guess.has_header ? first : 0;
    return guess;
}

struct sample {
    bool are_strong = true;
    int64_t records = 0;
    std::map<int32_t, int64_t> lengths;

    bool is_half(int32_t length) const
    {
        const auto found = lengths.find(length);
        return found != lengths.end() && found->second * 2 >= records;
    }
};

// The first records, whatever their lengths.
sample sample_of(check::file_bytes& bytes, int64_t first, bool are_strong)
{
    sample taken;
    taken.are_strong = are_strong;
    frame_scanner scanner(
        bytes, {.record_length = TS_VARIABLE_LENGTH, .first = first, .are_strong = are_strong});
    for (found_record one; taken.records < sample_records && scanner.next(one);) {
        ++taken.records;
        ++taken.lengths[one.length];
    }
    return taken;
}

// Frames of another program may have anything in the bytes that mean nothing.
sample take_sample(check::file_bytes& bytes, int64_t first)
{
    sample strong = sample_of(bytes, first, true);
    if (strong.records == sample_records) return strong;
    sample weak = sample_of(bytes, first, false);
    return weak.records > 2 * strong.records ? weak : strong;
}

int64_t one_record(const header_guess& header)
{
    return int64_t{frame_bytes} + std::max(header.header.record_length, 1);
}

int64_t find_first(check::file_bytes& bytes, const header_guess& header)
{
    frame_scanner scanner(bytes, {.record_length = TS_VARIABLE_LENGTH, .first = 0});
    if (header.has_header && scanner.holds_record(header.first)) return header.first;
    const int64_t found = scanner.find_chain(field_table_offset);
    if (!header.has_header || !header.has_mark) return found;
    // The first record may be what is damaged. But if another one begins where that has no room,
    // and the bytes before make a field table, it is the table's length that is wrong.
    const int64_t lost = found - header.first;
    const bool is_other = found < bytes.size() && lost < one_record(header) &&
                          !table_up_to(bytes, found, false).empty();
    return is_other ? found : header.first;
}

void choose_length(const header_guess& header, const sample& seen, guessed_file& guess)
{
    const int32_t told = header.header.record_length;
    const bool is_told = header.has_header && can_be_length(told) &&
                         (seen.records == 0 || seen.is_half(told) ||
                          (told == TS_VARIABLE_LENGTH && guess.is_table_believed));
    if (is_told) {
        guess.shape.record_length = told;
        guess.length_source = "as the header tells";
        return;
    }
    const bool is_one = seen.lengths.size() == 1;
    guess.shape.record_length = is_one ? seen.lengths.begin()->first : TS_VARIABLE_LENGTH;
    guess.length_source = "as the records show";
}

} // namespace

answer<guessed_file> guess_file(check::file_bytes& bytes, const known_facts& known)
{
    const header_guess header = read_header(bytes);
    guessed_file guess;
    guess.has_mark = header.has_mark;
    guess.shape.first = known.first ? *known.first : find_first(bytes, header);
    const bool is_told = header.has_header && header.first == guess.shape.first;
    guess.table = table_up_to(bytes, guess.shape.first, is_told && header.has_mark);
    guess.is_table_believed = is_told && (header.has_mark || !guess.table.empty());

    const sample seen = take_sample(bytes, guess.shape.first);
    guess.shape.are_strong = seen.are_strong;
    if (known.record_length) {
        guess.shape.record_length = *known.record_length;
        guess.length_source = "as asked for";
    } else {
        choose_length(header, seen, guess);
    }
    if (seen.records == 0 && !known.record_length && !(header.has_mark && header.has_header)) {
        return failure{"no records were found in it",
                       "if it is a data file, tell what is known with --record-length and --start"};
    }
    return guess;
}

} // namespace tarsil::tool
