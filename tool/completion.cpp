// The completion for bash, made from the table of commands and their options: commands first, then
// the options of the command, and names of files for everything else.
#include "tool/command.h"
#include "tool/output.h"

namespace tarsil::tool {

void write_completion(const std::vector<declared_command>& commands)
{
    std::string names;
    std::string cases;
    for (const declared_command& command : commands) {
        names += std::string(names.empty() ? "" : " ") + command.about->name;
        std::string options;
        for (const option& one : command.options.all())
            if (!one.is_operand()) options += " " + one.name;
        cases += fmt::format("    {}) words=\"{} --help\" ;;\n", command.about->name,
                             options.substr(std::min<size_t>(options.size(), 1)));
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
}

} // namespace tarsil::tool
