// Findings as text: one line each, for the command-line tool and for the messages of failed tests.
#pragma once

#include <string>

#include "check/finding.h"

namespace tarsil::check {

const char* name_of(invariant broken); // "D5"
const char* name_of(severity how_bad); // "out of step"
const char* name_of(remedy mended_by); // "reindex"; "" for none

// "I6 damage, key 0, at 2300: Entry 2 ... Remedy: reindex."
std::string line_of(const finding& found);

// All findings kept, a line each, and a line for every invariant of which more were counted than
// kept. Empty for a list without findings.
std::string lines_of(const finding_list& list);

} // namespace tarsil::check
