// The program.
//
// A closed pipe and a file-size limit are answers of a write here and not signals, so that files
// are closed in order whatever happens to the output. Ctrl-C asks a command to stop at the next
// record (tool/signals.h).
#include <clocale>
#include <cstdlib>

#include "tool/command.h"
#include "tool/signals.h"

namespace {

// Tables measure text in the terminal's characters; numbers keep their decimal point.
void choose_locale()
{
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

} // namespace

int main(int count, char** words)
{
    choose_locale();
    tarsil::tool::catch_signals();
    return tarsil::tool::run_command_line(count, words);
}
