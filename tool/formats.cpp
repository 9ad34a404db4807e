// Formats by name.
#include "tool/formats.h"

namespace tarsil::tool {

void add_format(CLI::App& options, std::string& format, const char* text)
{
    options.add_option("--format", format, text)->type_name("FORMAT");
}

void add_separator(CLI::App& options, char& separator)
{
    options
        .add_option_function<std::string>(
            "--separator", [&separator](const std::string& text) { separator = text[0]; },
            "Character between the columns of CSV (a comma)")
        ->check([](const std::string& text) {
            const bool fits = text.size() == 1 && text[0] != '"' && text[0] != '\n';
            return fits ? std::string() : std::string("not a single character");
        })
        ->type_name("CHARACTER");
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
