// Values by the names of fields.
#include "tool/assignments.h"

#include <fmt/format.h>

namespace tarsil::tool {

void add_assignments(option_set& options, std::vector<std::string>& assignments)
{
    options.add("--set", assignments, "The value of a field; once for each")
        .required()
        .value_name("NAME=VALUE");
}

outcome assign(record_builder& record, const std::vector<std::string>& assignments,
               const field_list& fields)
{
    std::vector<bool> is_set(fields.all.size());
    for (const std::string& text : assignments) {
        const size_t equals = text.find('=');
        if (equals == text.npos) return failure{"--set " + text + ": has no =", "write NAME=VALUE"};
        const std::string name = text.substr(0, equals);
        const int number = fields.find(name);
        std::string known;
        for (const field& one : fields.all) known += (known.empty() ? "" : ", ") + one.name;
        if (number < 0)
            return failure{fmt::format("--set {}: there is no field '{}'", text, name),
                           "the fields are " + known};
        if (is_set[static_cast<size_t>(number)])
            return failure{fmt::format("--set {}: '{}' is set twice", text, name),
                           "set each field once"};
        is_set[static_cast<size_t>(number)] = true;
        record.put(static_cast<size_t>(number), text.substr(equals + 1));
        if (!record.reason().empty())
            return failure{record.reason(), "give a value that the field can hold"};
    }
    if (!record.finish())
        return failure{record.reason(), "give values that make a record of the file"};
    return {};
}

void add_duplicates(option_set& options, duplicates& repeated)
{
    options
        .add_call(
            "--duplicates",
            [&repeated](const std::string& answer) {
                repeated = answer == "no" ? duplicates::refuse : duplicates::allow;
            },
            "Whether records may repeat a value of a key (yes)")
        .test([](const std::string& text) { return text == "yes" || text == "no"; },
              "answer: it is yes or no")
        .value_name("yes|no");
}

} // namespace tarsil::tool
