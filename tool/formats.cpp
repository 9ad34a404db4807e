// Formats by name.
#include "tool/formats.h"

namespace tarsil::tool {

void add_format(option_set& options, std::string& format, const char* text)
{
    options.add("--format", format, text).value_name("FORMAT");
}

void add_separator(option_set& options, char& separator)
{
    options
        .add_call(
            "--separator", [&separator](const std::string& text) { separator = text[0]; },
            "Character between the columns of CSV (a comma)")
        .test(
            [](const std::string& text) {
                return text.size() == 1 && text[0] != '"' && text[0] != '\n';
            },
            "single character that can stand between columns")
        .value_name("CHARACTER");
}

answer<row_format> read_format(const std::string& name, const std::string& file)
{
    const auto ends = [&](std::string_view ending) {
        return name.empty() && file.ends_with(ending);
    };
    if (name == "jsonl" || name == "json" || ends(".jsonl") || ends(".ndjson") || ends(".json"))
        return row_format::json_lines;
    if (name == "raw" || ends(".raw")) return row_format::raw;
    if (name == "csv" || name.empty()) return row_format::csv;
    return failure{"--format " + name + ": there is no such format", "it is csv, jsonl or raw"};
}

} // namespace tarsil::tool
