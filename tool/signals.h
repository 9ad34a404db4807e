// A wish to stop: Ctrl-C, a hang-up or a plain kill. Commands that change files look at
// stop_wanted() between two records, so that files are closed in order and the user is told how far
// they got; a second Ctrl-C ends the program at once.
#pragma once

namespace tarsil::tool {

// Also turns off the signals of a closed pipe and of the limit on the size of files.
void catch_signals();

bool stop_wanted();

} // namespace tarsil::tool
