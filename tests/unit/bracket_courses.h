// What each function in multi-user mode holds for longer than one transfer, as docs/LOCKING.md
// tells. A course names the brackets that are placed (a capital) and given back, and whether there
// are only reads (r) between them or writes as well (w). D is the whole data file, H its header, A
// and B are the index files i0 and i1, J is a new one.
#pragma once

#include "tests/unit/fault_sweep.h"

namespace tarsil::support {

std::string course_of(const std::vector<fault_site>& sites);
std::string expected_course(const workload& work);

} // namespace tarsil::support
