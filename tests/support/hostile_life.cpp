// The calls stand in one table, a line each; what they need is gathered in `life`.
#include "tests/support/hostile_life.h"

#include "tarsil32_text.h"
#include "tests/sim/sim.h"
#include "tests/support/file_parts.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

namespace tarsil::support {
namespace {

// Each is made anew: a vector that is assigned to keeps its room, and an overrun would end in it.
using buffer = std::vector<char>;

constexpr const char* data_name = "hostile.dat";
constexpr const char* index_name = "hostile.idx";
constexpr const char* new_index_name = "new.idx";

// No program has longer records to store than this, whatever a header says.
constexpr int64_t longest_own_record = 1 << 16;
// Of the platform, in one call on files of some kilobytes.
constexpr uint64_t most_platform_calls = 200000;

struct life {
    int32_t data = -1;
    int32_t index = -1;
    uint8_t first = 0; // arguments of the call
    uint8_t second = 0;
    int32_t deleted = 0;
    int32_t number = 0;
    buffer record;
    buffer value;
    buffer scratch;

    int32_t key() const { return second % 4; }
    int32_t record_number() const { return first < 250 ? first : first - 255; }
    int32_t mode() const { return first % 3; }
    char letter() const { return first % 2 == 0 ? 'y' : 'n'; }
};

int32_t record_length(const life& of)
{
    int32_t length = 0;
    int32_t unused = 0;
    const int32_t code = tsstatd32(of.data, &unused, &unused, &length, &unused, &unused);
    return code == TS_OK ? length : 0;
}

// The longest record that can be delivered: the file's own length, and never more than the file.
size_t room(const life& of)
{
    const int64_t length = record_length(of);
    const int64_t bytes = static_cast<int64_t>(sim::bytes(data_name).size());
    const int64_t most = length > 0 ? std::min(length, bytes) : bytes;
    return static_cast<size_t>(std::max<int64_t>(most, 1));
}

// The length of a record of the program's own, or 0 if it has none that long.
int32_t own_length(const life& of)
{
    const int64_t length = record_length(of);
    if (length > longest_own_record) return 0;
    return length > 0 ? static_cast<int32_t>(length) : 1 + of.second % 60;
}

int32_t value_bytes(const life& of)
{
    int32_t order = 0;
    int32_t node_bytes = 0;
    char cursor = 0;
    key_report report = {};
    if (tsstati32(of.data, of.index, of.key(), &order, &node_bytes, &cursor, &report) != TS_OK)
        return 0;
    int32_t bytes = 0;
    for (int32_t i = 0; i < report.field_count; ++i) bytes += report.lengths[i];
    return bytes;
}

void make_own_record(life& of, int32_t length)
{
    of.record = buffer(static_cast<size_t>(length), static_cast<char>(of.first));
    of.scratch = buffer(static_cast<size_t>(length), 0);
}

// tsrecd32 tells the length as it stands in the frame, which may be any number.
bool can_be_length(int32_t length) { return length > 0 && length <= longest_own_record; }

// An update in a file of variable length needs the length that is stored.
template <class Call, class... Name> int32_t update(life& of, Call call, Name... name)
{
    int32_t length = own_length(of);
    int32_t stored = 0;
    const bool is_variable = record_length(of) == TS_VARIABLE_LENGTH;
    if (is_variable && tsrecd32(of.data, &of.number, &of.deleted, &stored) == TS_OK)
        length = can_be_length(stored) ? stored : 0;
    if (length == 0) return TS_OK;
    make_own_record(of, length);
    return call(of.data, name..., of.record.data(), length, &of.deleted, of.scratch.data(),
                of.mode());
}

int32_t add(life& of, char duplicates)
{
    const int32_t length = own_length(of);
    if (length == 0) return TS_OK;
    make_own_record(of, length);
    return tsadd32(of.data, of.record.data(), length, duplicates);
}

// The way to size a buffer: the length first.
int32_t read_measured(life& of)
{
    int32_t length = 0;
    const int32_t code = tsrecd32(of.data, &of.number, &of.deleted, &length);
    if (code != TS_OK || !can_be_length(length)) return code;
    of.record = buffer(static_cast<size_t>(length), 0);
    return tsgetcd32(of.data, of.record.data(), &of.deleted);
}

int32_t read_facts(life& of)
{
    int32_t facts[5] = {};
    int32_t code = tsstatd32(of.data, &facts[0], &facts[1], &facts[2], &facts[3], &facts[4]);
    if (code != TS_OK || facts[4] < 0 || facts[4] > longest_own_record) return code;
    std::vector<field_entry> fields(static_cast<size_t>(facts[4]));
    code = tsfields32(of.data, fields.data());
    if (code < 0) return code;
    return tsvernum32(2, &facts[0], &facts[1], of.data, of.index);
}

int32_t build_index(life& of)
{
    if (sim::exists(new_index_name)) return TS_OK;
    key_definition definition = define_key(2, {{'i'}, {'s', 1 + of.first, of.second}});
    const int32_t code = tscrindd32(of.data, new_index_name, 1, &definition, of.record.data());
    if (code >= 0) tsclosei32(of.data, code);
    return code;
}

int32_t open_index(life& of, const char* cursors)
{
    std::string letters(cursors);
    if (of.data >= 0) of.index = tsopeni32(of.data, index_name, letters.data());
    return of.data < 0 ? of.data : of.index;
}

int32_t rebuild(life& of)
{
    const int32_t closed = tsclosed32(of.data);
    if (closed != TS_OK) return closed;
    of.record = buffer(sim::bytes(data_name).size(), 0);
    of.data = tsrbdbh32(data_name, of.record.data());
    return open_index(of, "ynyynyyn");
}

int32_t open_again(life& of)
{
    const int32_t closed = tsclosed32(of.data);
    if (closed != TS_OK) return closed;
    of.data = tsopend32(data_name);
    return open_index(of, "yyyyyyyy");
}

using made_call = int32_t (*)(life&);

template <auto read> int32_t in_file(life& of)
{
    return read(of.data, of.record.data(), &of.deleted);
}
template <auto read> int32_t by_key(life& of)
{
    return read(of.data, of.index, of.key(), of.record.data(), &of.deleted);
}
template <auto search> int32_t by_part(life& of)
{
    return search(of.data, of.index, of.key(), of.value.data(), of.first % 5, of.first / 8,
                  of.record.data(), &of.deleted);
}
template <auto call> int32_t by_number(life& of) { return call(of.data, of.record_number()); }
template <auto call> int32_t at_current(life& of) { return call(of.data); }
template <auto call> int32_t by_value(life& of)
{
    return call(of.data, of.index, of.key(), of.value.data());
}
template <auto call> int32_t at_cursor(life& of) { return call(of.data, of.index, of.key()); }

constexpr made_call reads[] = {
    [](life& of) { return tsgetd32(of.data, of.record_number(), of.record.data(), &of.deleted); },
    in_file<tsgetfd32>,
    in_file<tsgetld32>,
    in_file<tsgetnd32>,
    in_file<tsgetnd32>,
    in_file<tsgetpd32>,
    in_file<tsgetcd32>,
    read_measured,
    read_facts,
    by_key<tsgetfi32>,
    by_key<tsgetli32>,
    by_key<tsgetni32>,
    by_key<tsgetni32>,
    by_key<tsgetpi32>,
    by_key<tsgetpi32>,
    by_key<tsgetci32>,
    [](life& of) {
        return tsgeti32(of.data, of.index, of.key(), of.value.data(), of.record.data(),
                        &of.deleted);
    },
    by_part<tsgetip32>,
    by_part<tsgetipp32>,
    [](life& of) { return tssetd2i32(of.data, of.index, of.key(), &of.number); },
    [](life& of) {
        of.value = buffer(of.value.size() + 4, 0); // a packed key ends with a record's offset
        return tsseti2d32(of.data, of.index, of.key(), of.record.data(), of.value.data(),
                          &of.number);
    },
    open_again,
};

constexpr made_call changes[] = {
    [](life& of) { return add(of, 'y'); },
    [](life& of) { return add(of, 'n'); },
    [](life& of) { return add(of, of.letter()); },
    by_number<tsdeld32>,
    at_current<tsdelcd32>,
    by_value<tsdeli32>,
    at_cursor<tsdelci32>,
    by_number<tsundeld32>,
    at_current<tsudelcd32>,
    by_value<tsundeli32>,
    at_cursor<tsudelci32>,
    [](life& of) { return update(of, tsupd32, of.record_number()); },
    [](life& of) { return update(of, tsupcd32); },
    [](life& of) { return update(of, tsupi32, of.index, of.key(), of.value.data()); },
    [](life& of) { return update(of, tsupci32, of.index, of.key()); },
    build_index,
    [](life& of) { return tspurge32(of.data, of.record.data(), &of.number); },
    rebuild,
    at_current<tslockd32>,
    at_current<tsulockd32>,
    by_number<tslockdr32>,
    by_number<tsulckdr32>,
    [](life& of) { return tslocki32(of.data, of.index); },
    [](life& of) { return tsulocki32(of.data, of.index); },
};

void make_room(life& of)
{
    of.record = buffer(room(of), 0);
    of.scratch = buffer(room(of), 0);
    of.value = buffer(static_cast<size_t>(value_bytes(of)), static_cast<char>(of.first));
}

std::string what_is_left()
{
    std::string left;
    if (sim::held_ranges() != 0) left += "ranges are held; ";
    if (sim::open_handles() != 0) left += "files are open; ";
    tsfree32();
    if (sim::live_blocks() != 0) left += "memory is not given back; ";
    return left;
}

void close_all(const life& of)
{
    tsulalld32(of.data);
    for (int32_t index = 0; index < TS_MAX_INDEX_FILES; ++index) tsulalli32(of.data, index);
    if (tsclosed32(of.data) != TS_OK) tsclosed32(of.data);
}

std::string broken_by(int32_t code)
{
    if (code < 0 && std::strcmp(tarsil32_code_name(code), "unknown") == 0)
        return "unknown code " + std::to_string(code);
    if (sim::calls() > most_platform_calls)
        return "took " + std::to_string(sim::calls()) + " platform calls";
    return {};
}

} // namespace

const size_t reading_calls = std::size(reads);
const size_t all_calls = std::size(reads) + std::size(changes);

hostile_files sound_files(int32_t record_length)
{
    sim::reset();
    tsinit32();
    field_entry fields[] = {{0, 'i'}, {8, 's'}};
    const int32_t data = tscrdata32(data_name, record_length, 2, fields);
    key_definition keys[] = {define_key(2, {{'i'}}),
                             define_key(2, {{'s', 3, 4}, {'f', 0, 8}, {'h', 0, 2}}, 'n')};
    tscrind32(data, index_name, 2, keys);
    for (int32_t number = 1; number <= 40; ++number) {
        const int32_t length = record_length > 0 ? record_length : 12 + number % 9;
        std::string body(static_cast<size_t>(length), static_cast<char>('a' + number % 7));
        const int32_t id = number * 17 % 41;
        std::memcpy(body.data(), &id, sizeof id);
        tsadd32(data, body.data(), length, 'y');
        if (number % 6 == 0) tsdelcd32(data);
    }
    tsclosed32(data);
    tsfree32();
    return {sim::bytes(data_name), sim::bytes(index_name)};
}

std::string live_with(const hostile_files& files, std::span<const uint8_t> script)
{
    sim::reset();
    sim::set_bytes(data_name, files.data);
    sim::set_bytes(index_name, files.index);
    const uint8_t around = script.empty() ? 0 : script[0];
    tsinit32();
    if ((around & in_shared_mode) != 0) tsmuser32('y');
    tsautoup32((around & in_write_through) != 0 ? 'y' : 'n');
    tsdelow32((around & with_reuse) != 0 ? 'y' : 'n');
    sim::offer_looks((around & without_looks) == 0);

    life own;
    std::string broken;
    bool only_read = true;
    own.data = tsopend32(data_name);
    char cursors[] = "yyynyyyy";
    if (own.data >= 0) own.index = tsopeni32(own.data, index_name, cursors);
    broken += broken_by(own.data) + broken_by(own.index);

    const size_t calls = std::min<size_t>(script_calls, script.empty() ? 0 : script.size() / 3);
    for (size_t i = 0; own.data >= 0 && broken.empty() && i < calls; ++i) {
        const uint8_t* const step = script.data() + 1 + 3 * i;
        if (step + 3 > script.data() + script.size()) break;
        const size_t which = step[0] % all_calls;
        const bool is_read = which < reading_calls;
        const made_call call = is_read ? reads[which] : changes[which - reading_calls];
        own.first = step[1];
        own.second = step[2];
        make_room(own);
        only_read = only_read && is_read;
        sim::count_afresh();
        broken += broken_by(call(own));
    }

    if (own.data >= 0) close_all(own);
    if (only_read && (sim::bytes(data_name) != files.data || sim::bytes(index_name) != files.index))
        broken += "a file that was only read has changed; ";
    return broken + what_is_left();
}

} // namespace tarsil::support
