// tarsil locks: which processes hold which ranges of files, and what the ranges mean.
//
// The files aren't locked and not opened through the library, so that nothing is in the way of
// those who work with them. The system joins ranges of one process that touch; such a range is told
// by all that it covers.
#include <fstream>

#include "check/data_check.h"
#include "index/index_format.h"
#include "tool/command.h"
#include "tool/holders.h"
#include "tool/opening.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

constexpr int64_t whole_bytes = 0x7fffffff;

// What the ranges of a file are named by.
struct file_map {
    file_kind kind = file_kind::other;
    data_header header{};
    int64_t first_record = 0;
    int64_t records_end = 0; // behind the last whole record
    check::frame_list frames;
    int32_t key_count = 0;
    key_record keys[TS_MAX_KEYS]{};
};

file_map map_of(const std::string& name)
{
    file_map map;
    map.kind = kind_of(name);
    check::file_bytes bytes;
    if (bytes.open(name.c_str()) != check::open_result::opened) return map;
    if (map.kind == file_kind::data) {
        const check::data_report report = check::check_data_file(bytes, &map.frames);
        map.header = report.header;
        map.first_record = int64_t{field_table_offset} + report.header.field_bytes;
        map.records_end = report.walk_end;
    }
    const check::byte_span start = bytes.at(0, first_node_offset);
    if (map.kind == file_kind::index && !start.empty()) {
        map.key_count = std::clamp(load_i32(start.data() + key_count_offset), 0, TS_MAX_KEYS + 0);
        std::memcpy(map.keys, start.data() + key_records_offset, sizeof map.keys);
    }
    return map;
}

bool overlaps(const held_bytes& held, int64_t from, int64_t behind)
{
    return held.first < behind && held.last >= from;
}

void add_part(std::string& text, const std::string& part)
{
    text += (text.empty() ? "" : ", ") + part;
}

// The number of the record in which an offset lies; one more than there are behind them all.
int64_t record_at(const file_map& map, int64_t offset)
{
    int64_t low = 0;
    int64_t high = map.frames.count();
    if (offset >= map.records_end) return high + 1;
    while (low < high) {
        const int64_t middle = (low + high) / 2;
        if (map.frames.offset_of(middle) <= offset)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// One record, its frame or its body, or the records that a joined range covers.
std::string records_text(const file_map& map, const held_bytes& held)
{
    const int64_t from = std::max(held.first, map.first_record);
    const int64_t number = record_at(map, from);
    const int64_t last = record_at(map, held.last);
    if (number > map.frames.count()) return fmt::format("record {}, being added", number);
    if (last != number) return fmt::format("records {} to {}", number, last);
    const int64_t frame = map.frames.offset_of(number - 1);
    const bool from_frame = from == frame;
    if (from_frame && held.last == frame + frame_bytes - 1)
        return fmt::format("frame of record {}", number);
    if (from == frame + frame_bytes) return fmt::format("body of record {}", number);
    return fmt::format("{}record {}", from_frame ? "" : "a part of ", number);
}

std::string data_text(const file_map& map, const held_bytes& held)
{
    constexpr int64_t header_end = field_table_offset;
    std::string text;
    if (overlaps(held, 0, data_header_offset)) add_part(text, "file mark");
    if (overlaps(held, data_header_offset, header_end)) add_part(text, "header");
    if (overlaps(held, header_end, map.first_record)) add_part(text, "field table");
    if (held.last >= map.first_record) add_part(text, records_text(map, held));
    return text;
}

std::string nodes_text(const file_map& map, const held_bytes& held)
{
    const int64_t from = std::max<int64_t>(held.first, first_node_offset);
    const int64_t bytes = held.last - from + 1;
    std::string of;
    for (int32_t i = 0; i < map.key_count; ++i)
        if (map.keys[i].node_bytes == bytes) of += fmt::format("{}{}", of.empty() ? "" : " or ", i);
    if (of.empty()) return fmt::format("nodes from {} to {}", from, held.last);
    return fmt::format("the node at {} of key {}", from, of);
}

std::string index_text(const file_map& map, const held_bytes& held)
{
    std::string text;
    if (overlaps(held, 0, key_count_offset)) add_part(text, "file mark");
    if (overlaps(held, key_count_offset, key_records_offset)) add_part(text, "number of keys");
    if (overlaps(held, key_records_offset, first_node_offset)) add_part(text, "key records");
    if (held.last >= first_node_offset) add_part(text, nodes_text(map, held));
    return text;
}

std::string meaning_of(const file_map& map, const held_bytes& held)
{
    if (held.first == 0 && held.last >= whole_bytes - 1) return "the whole file";
    switch (map.kind) {
    case file_kind::data: return data_text(map, held);
    case file_kind::index: return index_text(map, held);
    default: return "a range";
    }
}

// --- Telling -----------------------------------------------------------------------------------

const char* way_of(const holder& one)
{
    if (one.is_alone) return "alone";
    return one.is_sharing ? "shared" : "without a lock";
}

json json_of(const std::string& name, const holders& found, const file_map& map)
{
    json processes = json::array();
    for (const holder& one : found.known) {
        json ranges = json::array();
        for (const held_bytes& held : one.ranges) {
            ranges.push_back({{"first", held.first},
                              {"last", held.last},
                              {"exclusive", held.is_exclusive},
                              {"meaning", meaning_of(map, held)}});
        }
        processes.push_back({{"process", one.pid},
                             {"program", one.program},
                             {"open", way_of(one)},
                             {"ranges", ranges}});
    }
    return {{"file", name},
            {"processes", processes},
            {"some_processes_hidden", found.are_some_hidden},
            {"some_locks_hidden", found.is_hidden_lock}};
}

void add_rows(const std::string& name, const holders& found, const file_map& map, rows& lines)
{
    for (const holder& one : found.known) {
        const std::vector<std::string> start = {name, std::to_string(one.pid), one.program,
                                                way_of(one)};
        if (one.ranges.empty()) {
            lines.push_back(start);
            lines.back().insert(lines.back().end(), {"nothing", "", ""});
        }
        for (const held_bytes& held : one.ranges) {
            const std::string last = held.last > whole_bytes ? "end" : std::to_string(held.last);
            lines.push_back(start);
            lines.back().insert(lines.back().end(),
                                {meaning_of(map, held) + (held.is_exclusive ? "" : " (to read)"),
                                 std::to_string(held.first), last});
        }
    }
}

int run(const std::vector<std::string>& names, const common_options& common)
{
    json all = json::array();
    rows lines;
    bool is_some_hidden = false;
    for (const std::string& name : names) {
        const file_kind kind = kind_of(name);
        if (kind == file_kind::not_there)
            return fail({name + ": there is no such file", "check the name"});
        if (kind == file_kind::no_file)
            return fail({name + ": is not a regular file", "check the name"});
        const holders found = holders_of(name);
        const file_map map = map_of(name);
        all.push_back(json_of(name, found, map));
        add_rows(name, found, map, lines);
        is_some_hidden = is_some_hidden || found.is_hidden_lock;
    }
    if (common.json) {
        put_json(all);
    } else if (lines.empty()) {
        print("nobody {}has {} open\n", is_some_hidden ? "that can be seen " : "",
              names.size() == 1 ? names.front() : "these files");
    } else {
        put_table({{"FILE"},
                   {"PROCESS", true},
                   {"PROGRAM"},
                   {"OPEN"},
                   {"HOLDS"},
                   {"FROM", true},
                   {"TO", true}},
                  lines);
    }
    if (is_some_hidden)
        note("there are locks of processes that may not be looked at; the administrator sees them");
    return exit_done;
}

} // namespace

run_command declare_locks(option_set& options, common_options& common)
{
    auto names = std::make_shared<std::vector<std::string>>();
    options.add("FILE", *names, "Data files and index files").required();
    add_json(options, common);
    return [names, &common] { return run(*names, common); };
}

} // namespace tarsil::tool
