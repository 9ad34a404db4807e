// The scan; see index/compare.h for its order and its answers.
//
// Nearly all of a scan is spent on entries that stand before the search value, told by their first
// field alone. So the letter of that field is decided once, by the choice of a template instance,
// and entries are passed in blocks without a branch between them, also those that are equal in
// their first field and told by a further one. The scan is linear all the same: a block is passed
// only as a whole, and otherwise walked entry by entry. The loops touch no entry at or behind the
// count, and of the search value nothing behind its fields, nor behind a zero that ends a string: a
// caller may have passed no more.
#include "index/compare.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace tarsil {

namespace {

// Where the search value stands to an entry, or to one field of it.
enum class outcome : int32_t { before = -1, equal = 0, behind = 1 };

template <class number> number load(const unsigned char* place)
{
    number value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// The kinds of fields: each holds the search value's side and answers for the entry's. is_behind
// and is_equal say the same as those outcomes, as cheaply as it can be said.
template <class number> struct number_field {
    number search;

    bool is_behind(const unsigned char* entry) const { return search > load<number>(entry); }
    bool is_equal(const unsigned char* entry) const { return search == load<number>(entry); }
    outcome compare(const unsigned char* entry) const
    {
        const number value = load<number>(entry);
        if (search == value) return outcome::equal;
        return search < value ? outcome::before : outcome::behind;
    }
};

// Floats and doubles: values nearer than the tolerance are equal, and a difference that is no
// number counts as near.
template <class real> struct real_field {
    real search;
    real tolerance;

    bool is_behind(const unsigned char* entry) const
    {
        const real value = load<real>(entry);
        return (int32_t{distance_to(value) >= tolerance} & int32_t{!(value > search)}) != 0;
    }
    bool is_equal(const unsigned char* entry) const
    {
        return !(distance_to(load<real>(entry)) >= tolerance);
    }
    outcome compare(const unsigned char* entry) const
    {
        const real value = load<real>(entry);
        if (!(distance_to(value) >= tolerance)) return outcome::equal;
        return value > search ? outcome::before : outcome::behind;
    }

private:
    real distance_to(real value) const
    {
        const real difference = search - value;
        return difference < 0 ? -difference : difference;
    }
};

// The tolerance is a chain of products, each rounded to the width of the field, and not a power of
// ten. Once it has come down to zero further products leave it there.
template <class real> real tolerance_from(real tolerance, real factor)
{
    for (int32_t i = 0; i < compare_precision && tolerance > 0; ++i) tolerance *= factor;
    return tolerance;
}
static_assert(std::bit_cast<uint32_t>(0.1F) == 0x3DCCCCCD &&
              std::bit_cast<uint64_t>(0.9999999999) == 0x3FEFFFFFFFF24190);

// A string ends at its first zero byte or with its field, and its bytes count as signed: 0x80 to
// 0xFF stand before the zero. The bytes up to the end of the search value decide, that zero
// included: an entry that ends earlier differs from it there.
int32_t deciding_bytes(const unsigned char* search, int32_t length)
{
    for (int32_t i = 0; i < length; ++i) {
        if (search[i] == 0) return i + 1;
    }
    return length;
}

// Bytes of a string as one number with the order of the string: the first byte is the highest, and
// turned sign bits make signed bytes compare as unsigned ones.
constexpr int32_t word_bytes = 8;

uint64_t load_word(const unsigned char* place)
{
    return __builtin_bswap64(load<uint64_t>(place)) ^ 0x8080808080808080U;
}

outcome compare_words(uint64_t search, uint64_t entry)
{
    if (search == entry) return outcome::equal;
    return search < entry ? outcome::before : outcome::behind;
}

struct string_field {
    const unsigned char* search;
    int32_t bytes;

    bool is_behind(const unsigned char* entry) const { return compare(entry) == outcome::behind; }
    bool is_equal(const unsigned char* entry) const { return compare(entry) == outcome::equal; }
    outcome compare(const unsigned char* entry) const
    {
        return bytes < word_bytes ? compare_bytewise(entry) : compare_wordwise(entry);
    }

private:
    outcome compare_bytewise(const unsigned char* entry) const
    {
        for (int32_t i = 0; i < bytes; ++i) {
            if (search[i] == entry[i]) continue;
            const bool lower = static_cast<signed char>(search[i]) <
                               static_cast<signed char>(entry[i]);
            return lower ? outcome::before : outcome::behind;
        }
        return outcome::equal;
    }
    outcome compare_wordwise(const unsigned char* entry) const
    {
        const int32_t last = bytes - word_bytes; // this word may begin within the one before it
        for (int32_t i = 0;; i += word_bytes) {
            const int32_t place = std::min(i, last);
            const outcome result = compare_words(load_word(search + place),
                                                 load_word(entry + place));
            if (result != outcome::equal || place == last) return result;
        }
    }
};

// A word of a search value, and where it stands. What lies behind the end of a value shorter than
// the word is masked out.
struct search_word {
    uint64_t value;
    uint64_t mask;
    int32_t place;

    uint64_t of(const unsigned char* entry) const { return load_word(entry + place) & mask; }
};

// The same with the first two words of the search value at hand, which tell nearly always; the
// first by itself where values don't begin alike.
struct headed_string_field {
    search_word first;
    search_word second; // may begin within the first; of a value of one word it is no bytes
    string_field whole;

    bool is_far_behind(const unsigned char* entry) const { return first.value > first.of(entry); }
    bool is_behind(const unsigned char* entry) const
    {
        const uint64_t one = first.of(entry);
        const uint64_t two = second.of(entry);
        const int32_t equal = int32_t{first.value == one};
        const int32_t behind = int32_t{first.value > one} | (equal & int32_t{second.value > two});
        const int32_t open = equal & int32_t{second.value == two};
        return behind != 0 || (open != 0 && whole.bytes > 2 * word_bytes && whole.is_behind(entry));
    }
    bool is_equal(const unsigned char* entry) const { return compare(entry) == outcome::equal; }
    outcome compare(const unsigned char* entry) const
    {
        const outcome result = compare_words(first.value, first.of(entry));
        if (result != outcome::equal || whole.bytes <= word_bytes) return result;
        return whole.compare(entry);
    }
};

headed_string_field with_head(const string_field& whole)
{
    unsigned char start[word_bytes] = {};
    const int32_t in_start = std::min(whole.bytes, word_bytes);
    std::copy_n(whole.search, in_start, start);
    const uint64_t mask = ~uint64_t{0} << (8 * (word_bytes - in_start));
    const search_word first = {load_word(start) & mask, mask, 0};
    if (whole.bytes <= word_bytes) return {first, {0, 0, 0}, whole};

    const int32_t place = std::min(word_bytes, whole.bytes - word_bytes);
    return {first, {load_word(whole.search + place), ~uint64_t{0}, place}, whole};
}

// A letter that is none of the ten tells nothing, so it decides nothing.
struct unknown_field {
    static bool is_behind(const unsigned char*) { return false; }
    static bool is_equal(const unsigned char*) { return true; }
    static outcome compare(const unsigned char*) { return outcome::equal; }
};

// A field of the search value with all that is the same for every entry.
struct search_field {
    char type;
    int32_t place; // in a packed key
    const unsigned char* search;
    int32_t bytes;    // of a string
    double tolerance; // of a float too, whose values a double holds exactly
};

search_field prepare(const key_field& field, int32_t place, const unsigned char* search_key)
{
    search_field prepared = {field.type, place, search_key + place, 0, 0};
    if (field.type == 's') prepared.bytes = deciding_bytes(prepared.search, field.length);
    if (field.type == 'f') prepared.tolerance = double{tolerance_from(1.0F, 0.1F)};
    if (field.type == 'd') prepared.tolerance = tolerance_from(0.9999999999, 0.1);
    return prepared;
}

// Hands the field of its kind to `use`.
template <class user> auto with_kind(const search_field& field, const user& use)
{
    switch (field.type) {
    case 'H': return use(number_field<uint16_t>{load<uint16_t>(field.search)});
    case 'h': return use(number_field<int16_t>{load<int16_t>(field.search)});
    case 'L':
    case 'U': return use(number_field<uint32_t>{load<uint32_t>(field.search)});
    case 'i':
    case 'l': return use(number_field<int32_t>{load<int32_t>(field.search)});
    case 'c': return use(number_field<uint8_t>{load<uint8_t>(field.search)});
    case 'f':
        return use(
            real_field<float>{load<float>(field.search), static_cast<float>(field.tolerance)});
    case 'd': return use(real_field<double>{load<double>(field.search), field.tolerance});
    case 's': return use(string_field{field.search, field.bytes});
    default: return use(unknown_field{});
    }
}

// Entries are passed by the block: each is looked at, so that none waits for the answer of the one
// before it.
constexpr int32_t block_entries = 8;
constexpr ptrdiff_t line_bytes = 64;
constexpr int32_t fetched_ahead = 2048; // bytes: what a scan comes to later is brought meanwhile

template <class kind>
bool is_behind_block(const kind& field, const unsigned char* entry, ptrdiff_t stride)
{
    int32_t behind = 1;
    for (int32_t i = 0; i < block_entries; ++i, entry += stride)
        behind &= int32_t{field.is_behind(entry)};
    return behind != 0;
}

template <class kind>
bool is_equal_block(const kind& field, const unsigned char* entry, ptrdiff_t stride)
{
    int32_t equal = 1;
    for (int32_t i = 0; i < block_entries; ++i, entry += stride)
        equal &= int32_t{field.is_equal(entry)};
    return equal != 0;
}

// What decides where the first fields are equal: the further ones, prepared when they are first
// needed, and the record offset.
class tie_break {
public:
    tie_break(const key_record& key, const unsigned char* search_key, bool with_record_offset)
        : key_(key), search_key_(search_key), with_record_offset_(with_record_offset)
    {
    }

    outcome compare(const unsigned char* entry)
    {
        if (!prepared_) prepare_fields();
        for (int32_t i = 1; i < key_.field_count; ++i) {
            const search_field& field = fields_[i];
            const outcome result = with_kind(
                field, [&](const auto& kind) { return kind.compare(entry + field.place); });
            if (result != outcome::equal) return result;
        }
        return with_record_offset_ ? compare_record_offset(entry) : outcome::equal;
    }

    // Whether the search value is behind each entry of a block by one and the same further field.
    bool is_behind_equal_block(const unsigned char* entry, ptrdiff_t stride)
    {
        if (!prepared_) prepare_fields();
        bool behind = false;
        bool equal = true;
        for (int32_t i = 1; equal && !behind && i < key_.field_count; ++i) {
            const unsigned char* const place = entry + fields_[i].place;
            with_kind(fields_[i], [&](const auto& kind) {
                behind = is_behind_block(kind, place, stride);
                equal = behind || is_equal_block(kind, place, stride);
            });
        }
        return behind;
    }

private:
    void prepare_fields()
    {
        int32_t place = 0;
        for (int32_t i = 1; i < key_.field_count; ++i) {
            place += key_.fields[i - 1].length;
            fields_[i] = prepare(key_.fields[i], place, search_key_);
        }
        prepared_ = true;
    }

    // The other way round than a field: the record further back in the file stands first.
    outcome compare_record_offset(const unsigned char* entry) const
    {
        const int32_t searched = record_of_packed_key(key_, search_key_);
        const int32_t found = record_of_packed_key(key_, entry);
        if (searched == found) return outcome::equal;
        return searched > found ? outcome::before : outcome::behind;
    }

    const key_record& key_;
    const unsigned char* search_key_;
    bool with_record_offset_;
    bool prepared_ = false;
    search_field fields_[TS_MAX_KEY_FIELDS];
};

struct entry_run {
    const unsigned char* entries; // packed key of entry 0
    int32_t stride;
    int32_t count;
};

// Whether the search value is behind the whole block by the first field, without a loop. Values
// that don't begin alike are told by their first words.
template <class kind, int32_t... place>
bool is_behind_at_once(const kind& first, const unsigned char* entry, ptrdiff_t stride,
                       std::integer_sequence<int32_t, place...>)
{
    if constexpr (requires { first.is_far_behind(entry); }) {
        if ((int32_t{first.is_far_behind(entry + place * stride)} & ...) != 0) return true;
    }
    return (int32_t{first.is_behind(entry + place * stride)} & ...) != 0;
}

// The same for numbers of 32 bits, four at a time.
template <class number> struct four_numbers {
    using type [[gnu::vector_size(16)]] = number;
};

template <class number>
auto behind_four(number search, const unsigned char* entry, ptrdiff_t stride)
{
    using four = typename four_numbers<number>::type;
    const four values = {load<number>(entry), load<number>(entry + stride),
                         load<number>(entry + 2 * stride), load<number>(entry + 3 * stride)};
    return values < search;
}

template <class number, int32_t... place>
requires(sizeof(number) == 4) bool is_behind_at_once(const number_field<number>& first,
                                                     const unsigned char* entry, ptrdiff_t stride,
                                                     std::integer_sequence<int32_t, place...>)
{
    static_assert(block_entries == 8);
    const auto behind = behind_four(first.search, entry, stride) &
                        behind_four(first.search, entry + 4 * stride, stride);
    uint64_t halves[2];
    static_assert(sizeof halves == sizeof behind);
    std::memcpy(halves, &behind, sizeof halves);
    return (halves[0] & halves[1]) == ~uint64_t{0};
}

template <class kind>
scan_result scan(const entry_run& run, const kind& first, tie_break& ties, int32_t& position)
{
    constexpr std::make_integer_sequence<int32_t, block_entries> block_places;
    const unsigned char* entry = run.entries;
    const ptrdiff_t block_bytes = ptrdiff_t{block_entries} * run.stride;
    for (position = 0; position < run.count;) {
        const int32_t stop = std::min(position + block_entries, run.count);
        for (ptrdiff_t i = 0; i < block_bytes; i += line_bytes)
            __builtin_prefetch(entry + fetched_ahead + i);
        const bool passes = stop - position == block_entries &&
                            (is_behind_at_once(first, entry, run.stride, block_places) ||
                             (is_equal_block(first, entry, run.stride) &&
                              ties.is_behind_equal_block(entry, run.stride)));
        if (passes) {
            position = stop;
            entry += block_bytes;
            continue;
        }
        for (; position < stop; ++position, entry += run.stride) {
            outcome result = first.compare(entry);
            if (result == outcome::equal) result = ties.compare(entry);
            if (result != outcome::behind) return static_cast<scan_result>(result);
        }
    }
    return scan_result::behind_all;
}

} // namespace

scan_result node_scan(const key_record& key, const unsigned char* entries,
                      const unsigned char* search_key, int32_t count, int32_t& position,
                      bool with_record_offset)
{
    position = 0;
    if (count <= 0) return scan_result::before;

    const entry_run run = {entries, entry_stride(key), count};
    const search_field first = prepare(key.fields[0], 0, search_key);
    tie_break ties(key, search_key, with_record_offset);

    // A head reads so many bytes of an entry, whatever the length of its first field.
    if (first.type == 's' && first.bytes > 0 && key.entry_key_bytes >= word_bytes)
        return scan(run, with_head({first.search, first.bytes}), ties, position);
    return with_kind(first, [&](const auto& kind) { return scan(run, kind, ties, position); });
}

void pack_key(const key_record& key, const record_image& record, int32_t record_offset,
              unsigned char* packed)
{
    for (int32_t i = 0; i < key.field_count; ++i) {
        const key_field& field = key.fields[i];
        const bool begins_inside = field.offset >= 0 && field.offset < record.length;
        const int32_t inside = begins_inside ? std::min(field.length, record.length - field.offset)
                                             : 0;
        if (inside > 0)
            std::memcpy(packed, record.bytes + field.offset, static_cast<size_t>(inside));
        std::fill(packed + inside, packed + field.length, static_cast<unsigned char>(0));
        packed += field.length;
    }
    store_i32(packed, record_offset);
}

} // namespace tarsil
