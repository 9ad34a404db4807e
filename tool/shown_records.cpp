// Tables of records.
#include "tool/shown_records.h"

#include "tool/formats.h"
#include "tool/values.h"

namespace tarsil::tool {

void add_shown_format(option_set& options, std::string& format, common_options& common)
{
    add_format(options, format, "table, csv, jsonl or raw (table)");
    options.add("--json", common.json, "The same as --format jsonl");
}

answer<shown_records> shown_records::in_format(const std::string& format,
                                               const common_options& common,
                                               const field_list& fields)
{
    shown_records made(fields);
    if (!common.json && (format.empty() || format == "table")) return made;
    const answer<row_format> known = read_format(common.json ? "jsonl" : format, "");
    if (!known) return known.why();
    const writing_options options{.format = *known, .has_deleted = true, .has_number = true};
    made.writer_.emplace(standard_output(), fields, options);
    made.writer_->begin();
    return made;
}

outcome shown_records::put(const record& one, std::string_view remark)
{
    if (writer_) return writer_->put(one);
    std::vector<std::string> cells{std::to_string(one.number)};
    for (size_t i = 0; i < fields_->all.size(); ++i) {
        std::span<const std::byte> bytes;
        const presence there = find_field(*fields_, i, one.bytes, bytes);
        const bool is_number = fields_->all[i].letter != 's';
        const bool is_shown = there == presence::whole || (there == presence::cut && !is_number);
        cells.push_back(is_shown ? shown_value(fields_->all[i], bytes) : std::string());
    }
    cells.emplace_back(remark);
    if (one.deleted) cells.back() += cells.back().empty() ? "deleted" : ", deleted";
    has_remarks_ = has_remarks_ || !cells.back().empty();
    table_.push_back(std::move(cells));
    return {};
}

void shown_records::put_list(const std::vector<std::string>& cells) const
{
    std::vector<std::pair<std::string, std::string>> facts{
        {"record", cells[0] + (cells.back().empty() ? "" : " (" + cells.back() + ")")}};
    for (size_t i = 0; i < fields_->all.size(); ++i)
        facts.emplace_back(fields_->all[i].name, cells[i + 1]);
    put_facts(facts);
}

void shown_records::finish()
{
    if (writer_ || table_.empty()) return;
    if (table_.size() == 1) return put_list(table_[0]);
    std::vector<column> columns{{"record", true}};
    for (const field& one : fields_->all) columns.push_back({one.name, one.letter != 's'});
    if (has_remarks_) columns.push_back({"remark"});
    for (auto& cells : table_) cells.resize(columns.size());
    put_table(columns, table_);
}

} // namespace tarsil::tool
