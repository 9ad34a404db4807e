// The program: reads the command line, runs the command, answers its exit status.
//
// A closed pipe and a file-size limit are answers of a write here and not signals, so that files
// are closed in order whatever happens to the output. Ctrl-C asks a command to stop at the next
// record (tool/signals.h).
#include <algorithm>
#include <clocale>

#include <fmt/format.h>

#include "tool/command.h"
#include "tool/output.h"
#include "tool/signals.h"

namespace {

using namespace tarsil::tool;

struct declared {
    CLI::App* options;
    run_command run;
};

// Tables measure text in the terminal's characters; numbers keep their decimal point.
void choose_locale()
{
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

std::vector<declared> declare_all(CLI::App& program, common_options& common)
{
    std::vector<declared> list;
    for (const command& one : all_commands()) {
        CLI::App* const options = program.add_subcommand(one.name, one.summary);
        options->footer(std::string("Examples:\n") + one.examples);
        list.push_back({options, one.declare(*options, common)});
    }
    return list;
}

// What CLI11 says of a wrong command line, as one line.
int refuse(const CLI::App& program, const CLI::ParseError& why)
{
    std::string of;
    for (const CLI::App* const one : program.get_subcommands()) of = one->get_name();
    set_command(of);
    return fail(
        {why.what(), fmt::format("`tarsil {}{}--help` tells how", of, of.empty() ? "" : " ")});
}

bool is_command(std::string_view name)
{
    const auto all = all_commands();
    return std::any_of(all.begin(), all.end(),
                       [&](const command& one) { return one.name == name; });
}

int run(int argc, char** argv)
{
    if (argc < 2) return fail({"no command", "`tarsil --help` lists them"});
    if (argv[1][0] != '-' && !is_command(argv[1]))
        return fail({fmt::format("'{}' is no command", argv[1]), "`tarsil --help` lists them"});
    CLI::App program("Works on TARSIL32 data files and index files.", "tarsil");
    program.set_version_flag("--version", "tarsil " TARSIL_VERSION);
    program.require_subcommand(1);
    bool manual = false;
    bool completion = false;
    program.add_flag("--print-manual", manual)->group("");
    program.add_flag("--print-completion", completion)->group("");
    common_options common;
    const std::vector<declared> commands = declare_all(program, common);
    if (argc == 2 && std::string_view(argv[1]) == "--print-manual") return write_manual(program), 0;
    if (argc == 2 && std::string_view(argv[1]) == "--print-completion")
        return write_completion(program), 0;

    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return program.exit(help);
    } catch (const CLI::ParseError& why) {
        return refuse(program, why);
    }
    for (const declared& one : commands) {
        if (!one.options->parsed()) continue;
        set_command(one.options->get_name());
        return finish_output(one.run());
    }
    return exit_failed;
}

} // namespace

int main(int argc, char** argv)
{
    choose_locale();
    catch_signals();
    return run(argc, argv);
}
