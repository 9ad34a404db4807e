// The command line, read by CLI11; the only file that knows of it.
#include <algorithm>
#include <map>

#include <CLI/CLI.hpp>

#include <fmt/format.h>

#include "tool/command.h"
#include "tool/output.h"
#include "tool/values.h"

namespace tarsil::tool {

namespace {

// Hands an option's value to CLI11 as what it is.
struct declaration {
    CLI::App& app;
    const option& one;

    CLI::Option* operator()(bool* value) const { return app.add_flag(one.name, *value, one.about); }
    CLI::Option* operator()(const on_flag& call) const
    {
        return app.add_flag_callback(one.name, call, one.about);
    }
    CLI::Option* operator()(const on_value& call) const
    {
        return app.add_option_function<std::string>(one.name, call, one.about);
    }
    CLI::Option* operator()(auto* value) const
    {
        return app.add_option(one.name, *value, one.about);
    }
};

void declare(CLI::App& app, const option_set& options)
{
    std::map<std::string, CLI::Option*> known;
    for (const option& one : options.all()) {
        CLI::Option* const made = std::visit(declaration{app, one}, one.value);
        known[one.name] = made;
        if (one.is_required) made->required();
        if (!one.is_flag()) made->type_name(one.is_operand() ? "" : one.value_text);
        if (one.is_list() && !one.is_operand()) made->allow_extra_args(false);
        if (!one.default_text.empty()) made->default_str(one.default_text);
        if (!one.excluded.empty()) made->excludes(known[one.excluded]);
        if (!one.passes) continue;
        made->check([&one](const std::string& text) {
            return one.passes(text) ? std::string()
                                    : fmt::format("{} is no {}", in_quotes(text), one.wanted);
        });
    }
}

// What CLI11 says of a wrong command line, as one line.
int refuse(const CLI::App& program, const CLI::ParseError& why)
{
    std::string of;
    for (const CLI::App* const one : program.get_subcommands()) of = one->get_name();
    set_command(of);
    std::string text = why.what();
    const std::vector<std::string> extra = program.remaining(true);
    if (!extra.empty())
        text = in_quotes(extra[0]) +
               (extra[0].starts_with('-') ? " is no option here" : " is a word too many");
    return fail({text, fmt::format("`tarsil {}{}--help` tells how", of, of.empty() ? "" : " ")});
}

bool is_command(std::string_view name)
{
    const auto all = all_commands();
    return std::any_of(all.begin(), all.end(),
                       [&](const command& one) { return one.name == name; });
}

int parse_and_run(int count, char** words, const std::vector<declared_command>& commands)
{
    CLI::App program("Works on TARSIL32 data files and index files.", "tarsil");
    program.set_version_flag("--version", "tarsil " TARSIL_VERSION);
    program.require_subcommand(1);
    for (const declared_command& one : commands) {
        CLI::App* const options = program.add_subcommand(one.about->name, one.about->summary);
        options->footer(std::string("Examples:\n") + one.about->examples);
        declare(*options, one.options);
    }
    try {
        program.parse(count, words);
    } catch (const CLI::Success& help) {
        return program.exit(help);
    } catch (const CLI::ParseError& why) {
        return refuse(program, why);
    }
    for (const declared_command& one : commands) {
        if (!program.got_subcommand(one.about->name)) continue;
        set_command(one.about->name);
        return finish_output(one.run());
    }
    return exit_failed;
}

} // namespace

int run_command_line(int count, char** words)
{
    if (count < 2) return fail({"no command", "`tarsil --help` lists them"});
    const std::string_view first = words[1];
    if (!first.starts_with('-') && !is_command(first))
        return fail({in_quotes(first) + " is no command", "`tarsil --help` lists them"});
    common_options common;
    const std::vector<declared_command> commands = declare_all(common);
    if (count == 2 && first == "--print-manual") {
        write_manual(commands);
        return finish_output(exit_done);
    }
    if (count == 2 && first == "--print-completion") {
        write_completion(commands);
        return finish_output(exit_done);
    }
    return parse_and_run(count, words, commands);
}

} // namespace tarsil::tool
