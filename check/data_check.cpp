#include "check/data_check.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/letters.h"
#include "core/offsets.h"

namespace tarsil::check {

namespace {

constexpr unsigned char expected_version = 0x2A;

// Why a walk ended.
enum class walk_stop : uint8_t {
    file_end, // behind a whole body
    zeros,    // only zeros from here
    no_frame, // a length that none can have
    cut       // the file ends within a frame or body
};

struct data_walk {
    file_bytes& file;
    data_report& report;
    frame_list& frames;
    int64_t position;
    bool in_tail = false; // the end that the header tells has been met
    walk_stop stop = walk_stop::file_end;
};

// Where the fields of the header stand in the file.
constexpr place header_place(size_t field)
{
    return {.offset = data_header_offset + static_cast<int64_t>(field)};
}

bool is_fixed(const data_report& report) { return report.header.record_length >= 1; }

remedy header_remedy(const data_report& report)
{
    return report.is_whole ? remedy::repair_header : remedy::salvage;
}

void add(data_report& report, invariant broken, severity how_bad, remedy mended_by, place where,
         std::string text)
{
    report.findings.add({broken, how_bad, mended_by, where, std::move(text)});
}

// D1.
bool read_header(file_bytes& file, data_report& report)
{
    const byte_span start = file.at(0, field_table_offset);
    const char* wrong = nullptr;
    if (start.empty()) {
        wrong = "The file is shorter than the header of a data file.";
    } else if (std::memcmp(start.data() + 1, data_magic, sizeof data_magic) != 0) {
        wrong = "The file doesn't begin with the mark of a data file.";
    } else if (start[0] != expected_version) {
        wrong = "The version byte of the data file isn't 0x2A.";
    }
    if (wrong != nullptr) {
        add(report, invariant::D1, severity::damage, remedy::none, {.offset = 0}, wrong);
        return false;
    }
    std::memcpy(&report.header, start.data() + data_header_offset, data_header_bytes);
    report.is_data_file = true;
    return true;
}

// D3, and D4 for the first frame: without them there is no place to walk from.
bool find_first_frame(data_report& report)
{
    const int32_t table = report.header.field_bytes;
    const std::string text = "The header tells a field table of " + std::to_string(table) +
                             " bytes";
    const place where = header_place(offsetof(data_header, field_bytes));
    if (table < 0 || table % field_entry_bytes != 0) {
        add(report, invariant::D3, severity::damage, remedy::salvage, where,
            text + ", which is no number of 8-byte entries.");
        return false;
    }
    if (int64_t{field_table_offset} + table > report.file_size) {
        add(report, invariant::D4, severity::damage, remedy::salvage, where,
            text + ", more than the file holds.");
        return false;
    }
    return true;
}

void count_frame(data_walk& walk, char mark, int32_t length)
{
    data_report& report = walk.report;
    walk.frames.add(walk.position, length);
    if (walk.in_tail) {
        ++report.tail_records;
        return;
    }
    ++report.records;
    if (mark == mark_deleted) ++report.deleted;
    report.body_bytes += length;
    report.longest = std::max(report.longest, int64_t{length});
    report.shortest = report.records == 1 ? length : std::min(report.shortest, int64_t{length});
    walk.frames.listed = walk.frames.count();

    if (is_fixed(report) && length != report.header.record_length) {
        add(report, invariant::D6, severity::damage, remedy::none,
            {.offset = walk.position, .record = report.records},
            "The record has " + std::to_string(length) + " bytes in a file of fixed length " +
                std::to_string(report.header.record_length) + ".");
    }
}

// One frame further; false at the end of the walk, which `stop` tells. Behind the end that the
// header tells a file may hold leftovers, so that a file of fixed length has only frames of its
// length taken for records there.
bool step(data_walk& walk)
{
    const data_report& report = walk.report;
    const int64_t left = report.file_size - walk.position;
    if (left == 0) {
        walk.stop = walk_stop::file_end;
        return false;
    }
    const byte_span bytes = walk.file.at(walk.position, frame_bytes);
    int32_t length = 0;
    if (!bytes.empty()) length = load_i32(bytes.data() + offsetof(record_frame, length));

    const bool wrong_for_tail = walk.in_tail && is_fixed(report) &&
                                length != report.header.record_length;
    if (length < 1 || wrong_for_tail) {
        walk.stop = left < frame_bytes ? walk_stop::cut : walk_stop::no_frame;
        if (only_zeros_from(walk.file, walk.position)) walk.stop = walk_stop::zeros;
        return false;
    }
    if (length > left - frame_bytes) {
        walk.stop = walk_stop::cut;
        return false;
    }
    count_frame(walk, static_cast<char>(bytes[0]), length);
    walk.position += int64_t{frame_bytes} + length;
    return true;
}

void walk_frames(data_walk& walk)
{
    do {
        if (walk.position == walk.report.header.end_offset) walk.in_tail = true;
    } while (step(walk));
    walk.report.walk_end = walk.position;
    walk.report.is_whole = walk.stop == walk_stop::file_end || walk.stop == walk_stop::zeros;
    walk.report.is_walked = true;

    // Only now is it known what can be done about the odd lengths met on the way.
    for (finding& met : walk.report.findings.kept) met.mended_by = header_remedy(walk.report);
}

// D2.
void judge_record_length(data_report& report)
{
    const int32_t length = report.header.record_length;
    if (length >= 1 || length == variable_length) return;
    add(report, invariant::D2, severity::damage, header_remedy(report),
        header_place(offsetof(data_header, record_length)),
        "The header tells a record length of " + std::to_string(length) + ".");
}

// D5 and D7 where the frames lead to the end that the header tells.
void judge_counts(data_report& report)
{
    const data_header& header = report.header;
    if (report.records != header.record_count) {
        add(report, invariant::D5, severity::out_of_step, header_remedy(report),
            header_place(offsetof(data_header, record_count)),
            "The header tells " + std::to_string(header.record_count) + " records, and " +
                std::to_string(report.records) + " stand before the end that it tells.");
    }
    if (report.deleted != header.deleted_count) {
        add(report, invariant::D7, severity::out_of_step, header_remedy(report),
            header_place(offsetof(data_header, deleted_count)),
            "The header tells " + std::to_string(header.deleted_count) + " deleted records, and " +
                std::to_string(report.deleted) + " carry the mark.");
    }
}

void judge_tail(data_report& report, walk_stop stop)
{
    const int64_t end = report.header.end_offset;
    report.tail_bytes = report.file_size - end;
    if (!report.is_whole) {
        report.tail = tail_kind::other;
    } else if (report.tail_records > 0) {
        report.tail = tail_kind::records;
    } else if (stop == walk_stop::zeros) {
        report.tail = tail_kind::zeros;
    }
    if (report.tail_records > 0) {
        add(report, invariant::D5, severity::out_of_step, header_remedy(report), {.offset = end},
            std::to_string(report.tail_records) +
                " whole records lie behind the end that the header tells.");
    } else if (report.tail == tail_kind::other) {
        add(report, invariant::D5, severity::note, remedy::none, {.offset = end},
            "The " + std::to_string(report.tail_bytes) + " bytes behind the end that the header " +
                "tells are no records; the next record goes over them.");
    }
}

// D5 and D6 where they don't lead there: the walk broke before that end, or no frame ends at it.
void judge_missed_end(data_report& report, walk_stop stop)
{
    const place where{.offset = report.walk_end, .record = report.records + 1};
    const int64_t end = report.header.end_offset;
    if (stop == walk_stop::no_frame) {
        add(report, invariant::D6, severity::damage, remedy::salvage, where,
            "Where the frame of this record should be there is no length of 1 or more.");
    } else if (stop == walk_stop::cut) {
        add(report, invariant::D5, severity::damage, remedy::salvage, where,
            "The file ends within this record.");
    }
    if (report.is_whole || end < report.walk_end) {
        add(report, invariant::D5, severity::damage, header_remedy(report),
            header_place(offsetof(data_header, end_offset)),
            "The header tells that the records end at " + std::to_string(end) +
                ", where none ends; the last one ends at " + std::to_string(report.walk_end) + ".");
    }
}

} // namespace

data_report check_data_file(file_bytes& file, frame_list* frames)
{
    data_report report;
    report.file_size = file.size();
    if (!read_header(file, report)) return report;
    if (!find_first_frame(report)) return report;

    frame_list own;
    data_walk walk{.file = file,
                   .report = report,
                   .frames = frames != nullptr ? *frames : own,
                   .position = int64_t{field_table_offset} + report.header.field_bytes};
    walk_frames(walk);

    judge_record_length(report);
    if (walk.in_tail) {
        judge_counts(report);
        judge_tail(report, walk.stop);
    } else {
        judge_missed_end(report, walk.stop);
    }
    return report;
}

} // namespace tarsil::check
