#include "tool/repair_plan.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "core/letters.h"
#include "core/offsets.h"
#include "tool/frame_scanner.h"

namespace tarsil::tool {

namespace {

frame_count count_frames(check::file_bytes& bytes, int64_t first)
{
    frame_count count;
    count.end = first;
    for (;;) {
        record_frame frame = {};
        const check::byte_span stored = bytes.at(count.end, frame_bytes);
        if (stored.empty()) return count;
        std::memcpy(&frame, stored.data(), sizeof frame);
        if (frame.length < 1 || frame.length > bytes.size() - count.end - frame_bytes) return count;
        ++count.records;
        count.deleted += frame.mark == mark_deleted ? 1 : 0;
        count.shortest = std::min(count.shortest, frame.length);
        count.longest = std::max(count.longest, frame.length);
        count.end += frame_bytes + int64_t{frame.length};
    }
}

// The length of all records, or TS_VARIABLE_LENGTH. The header is believed where it says variable.
int32_t length_of_all(const repair_plan& plan)
{
    const int32_t told = plan.before.header.record_length;
    if (told == TS_VARIABLE_LENGTH || plan.found.is_mixed()) return TS_VARIABLE_LENGTH;
    if (plan.found.records > 0) return plan.found.longest;
    return told >= 1 ? told : TS_VARIABLE_LENGTH;
}

// Does what follows the last whole record begin like one more, without the length of a whole one?
bool begins_record(check::file_bytes& bytes, const repair_plan& plan)
{
    const int64_t left = bytes.size() - plan.found.end;
    const int32_t length = length_of_all(plan);
    const bool is_fixed = length >= 1;
    if (is_fixed && left >= int64_t{frame_bytes} + length) return false;
    const check::byte_span frame = bytes.at(plan.found.end, frame_bytes);
    if (frame.empty()) return true;
    const int32_t told = load_i32(frame.data() + offsetof(record_frame, length));
    return told >= 1 && (!is_fixed || told == length);
}

// Is what lies behind the last whole record no more than half a record, so that it can be cut off?
// Where the header tells the same end and the same number of records, it can begin with anything:
// a killed add beside others leaves a body without a length, and zeros behind it, which nobody
// counts and the next add would overwrite. A header that tells records behind it, within the file,
// says no.
bool is_half_record(check::file_bytes& bytes, const repair_plan& plan)
{
    const int64_t from = plan.found.end;
    const data_header& told = plan.before.header;
    if (told.end_offset > from && told.end_offset <= bytes.size()) return false;
    const bool is_counted = told.end_offset == from && told.record_count == plan.found.records;
    if (!is_counted && !begins_record(bytes, plan)) return false;
    frame_scanner scanner(bytes, {.record_length = length_of_all(plan), .first = from});
    return scanner.find_chain(from + 1) == bytes.size();
}

failure for_salvage(const std::string& name, const std::string& what)
{
    return {name + ": " + what + "; nothing was changed",
            fmt::format("`tarsil salvage {} NEW` saves what can be read", name)};
}

} // namespace

outcome plan_repair(const std::string& name, check::file_bytes& bytes, repair_plan& plan)
{
    if (!plan.before.is_data_file)
        return failure{name + ": doesn't begin with the mark of a data file",
                       "if it is a damaged one, `tarsil salvage` saves what can be read"};
    plan.is_needed = !plan.before.findings.is_sound();
    if (!plan.is_needed) return {};
    if (!plan.before.is_walked) return for_salvage(name, "the place of the records can't be told");

    plan.found = count_frames(bytes, int64_t{field_table_offset} + plan.before.header.field_bytes);
    const bool is_whole = check::only_zeros_from(bytes, plan.found.end);
    if (!is_whole && !is_half_record(bytes, plan))
        return for_salvage(name, fmt::format("from {} on there are no whole records, and more "
                                             "follows than half a one",
                                             plan.found.end));
    if (bytes.failed()) return for_salvage(name, "can't be read to its end");
    if (!is_whole) plan.cut_bytes = bytes.size() - plan.found.end;
    plan.becomes_variable = plan.found.is_mixed() &&
                            plan.before.header.record_length != TS_VARIABLE_LENGTH;
    return {};
}

} // namespace tarsil::tool
