// tarsil explain: name, cause and remedy of result codes.

#include "tool/command.h"
#include "tool/output.h"

namespace tarsil::tool {

namespace {

constexpr int32_t known_codes[] = {
#define TARSIL_TOOL_NUMBER(name, number, cause, remedy) (number),
    TARSIL32_CODES(TARSIL_TOOL_NUMBER) TARSIL_FACE_CODES(TARSIL_TOOL_NUMBER)
#undef TARSIL_TOOL_NUMBER
};

// A number with or without its sign, or a name with or without what stands in front of it.
bool is_meant(int32_t code, const std::string& asked)
{
    const std::string name(code_name(code));
    const std::string number = std::to_string(code);
    return asked == name || asked == number || "-" + asked == number || "TS_" + asked == name ||
           "face::" + asked == name;
}

json json_of(int32_t code)
{
    return {{"code", code},
            {"name", code_name(code)},
            {"cause", code_text(code)},
            {"remedy", code_remedy(code)}};
}

void put_code(int32_t code)
{
    put_facts({{"code", std::to_string(code)},
               {"name", std::string(code_name(code))},
               {"cause", std::string(code_text(code))},
               {"remedy", std::string(code_remedy(code))}});
}

void list_codes()
{
    rows lines;
    for (const int32_t code : known_codes)
        lines.push_back(
            {std::to_string(code), std::string(code_name(code)), std::string(code_text(code))});
    put_table({{"CODE", true}, {"NAME"}, {"CAUSE"}}, lines);
}

int run(const std::vector<std::string>& asked, const common_options& common)
{
    json all = json::array();
    if (asked.empty() && !common.json) return list_codes(), exit_done;
    for (const int32_t code : known_codes)
        if (asked.empty()) all.push_back(json_of(code));
    bool first = true;
    for (const std::string& one : asked) {
        const auto* const found = std::find_if(std::begin(known_codes), std::end(known_codes),
                                               [&](int32_t code) { return is_meant(code, one); });
        if (found == std::end(known_codes))
            return fail({one + " is no result code", "`tarsil explain` without a code lists all"});
        if (common.json) all.push_back(json_of(*found));
        if (common.json) continue;
        if (!first) print("\n");
        first = false;
        put_code(*found);
    }
    if (common.json) put_json(all);
    return exit_done;
}

} // namespace

run_command declare_explain(option_set& options, common_options& common)
{
    auto asked = std::make_shared<std::vector<std::string>>();
    options.add("CODE", *asked, "Numbers or names; without any, all codes are listed");
    add_json(options, common);
    return [asked, &common] { return run(*asked, common); };
}

} // namespace tarsil::tool
