// Records for people and programs alike: get and find write them as a table (one record as a list
// of its fields), or in a format of export.
#pragma once

#include "tool/command.h"
#include "tool/output.h"
#include "tool/record_writer.h"

namespace tarsil::tool {

// The options --format and --json.
void add_shown_format(option_set& options, std::string& format, common_options& common);

class shown_records {
public:
    static answer<shown_records> in_format(const std::string& format, const common_options& common,
                                           const field_list& fields);

    // `remark` goes with the record, in tables only.
    outcome put(const record& one, std::string_view remark = {});
    // The table is written when its last row is known.
    void finish();

private:
    explicit shown_records(const field_list& fields) : fields_(&fields) {}

    void put_list(const std::vector<std::string>& cells) const;

    const field_list* fields_;
    std::optional<record_writer> writer_;
    rows table_;
    bool has_remarks_ = false;
};

} // namespace tarsil::tool
