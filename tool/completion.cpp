// The completion for bash, made from the table of commands and their options: commands first, then
// the options of the command, and names of files for everything else.
#include "tool/command.h"
#include "tool/output.h"

namespace tarsil::tool {

void write_completion(const CLI::App& program)
{
    std::string names;
    std::string cases;
    for (const command& one : all_commands()) {
        names += std::string(names.empty() ? "" : " ") + one.name;
        std::string options;
        for (const CLI::Option* const option : program.get_subcommand(one.name)->get_options())
            if (!option->get_positional())
                for (const std::string& name : option->get_lnames()) options += " --" + name;
        cases += fmt::format("    {}) words=\"{}\" ;;\n", one.name, options.substr(1));
    }
    print(R"(# Completion of tarsil for bash.
_tarsil() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} words=
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "{} --help --version" -- "$current"))
        return
    fi
    case $before in
    --duplicates) COMPREPLY=($(compgen -W "yes no" -- "$current")); return ;;
    --format) COMPREPLY=($(compgen -W "csv jsonl raw table" -- "$current")); return ;;
    esac
    case ${{COMP_WORDS[1]}} in
{}    esac
    case $current in
    -*) COMPREPLY=($(compgen -W "$words" -- "$current")) ;;
    *) compopt -o default 2>/dev/null ;;
    esac
}}
complete -F _tarsil tarsil
)",
          names, cases);
    finish_output(exit_done);
}

} // namespace tarsil::tool
