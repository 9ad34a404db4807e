#include "check/report_text.h"

namespace tarsil::check {

namespace {

constexpr const char* invariant_names[invariant_count] = {"D1", "D2", "D3", "D4", "D5",  "D6",
                                                          "D7", "I1", "I2", "I3", "I4",  "I5",
                                                          "I6", "I7", "I8", "I9", "I10", "I11"};
constexpr const char* severity_names[severity_count] = {"damage", "out of step", "note"};
constexpr const char* remedy_names[] = {"", "repair", "reindex", "salvage"};

void append_if_given(std::string& line, const char* what, int64_t number)
{
    if (number != not_given) line.append(what).append(std::to_string(number));
}

} // namespace

const char* name_of(invariant broken) { return invariant_names[static_cast<size_t>(broken)]; }
const char* name_of(severity how_bad) { return severity_names[static_cast<size_t>(how_bad)]; }
const char* name_of(remedy mended_by) { return remedy_names[static_cast<size_t>(mended_by)]; }

std::string line_of(const finding& found)
{
    std::string line = name_of(found.broken);
    line.append(" ").append(name_of(found.how_bad));
    append_if_given(line, ", key ", found.where.key);
    append_if_given(line, ", record ", found.where.record);
    append_if_given(line, ", at ", found.where.offset);
    line.append(": ").append(found.text);
    if (found.mended_by != remedy::none) {
        line.append(" Remedy: ").append(name_of(found.mended_by)).append(".");
    }
    return line;
}

std::string lines_of(const finding_list& list)
{
    std::string lines;
    for (const finding& found : list.kept) lines.append(line_of(found)).append("\n");
    for (size_t i = 0; i < invariant_count; ++i) {
        const int64_t more = list.of_invariant[i] - finding_list::kept_of_each;
        if (more <= 0) continue;
        lines.append(invariant_names[i]).append(": ").append(std::to_string(more));
        lines.append(" more of this kind\n");
    }
    return lines;
}

} // namespace tarsil::check
