// Whether the header of a data file can be made anew from its records, and what that takes.
//
// The library's rebuild takes a file as a whole: it refuses one that ends with half a record, as a
// kill in the middle of an add leaves it, and makes a file of variable length of one in which a
// record has another length than the rest. So the frames are gone through here first. Half a record
// at the very end can be cut off, if nothing in it looks like records; whatever else is wrong needs
// the data saved into a new file.
#pragma once

#include <string>

#include "check/data_check.h"
#include "tool/failure.h"

namespace tarsil::tool {

// What a rebuild of the header would find.
struct frame_count {
    int64_t records = 0;
    int64_t deleted = 0;
    int64_t end = 0; // behind the last whole record
    int32_t shortest = INT32_MAX;
    int32_t longest = 0;

    bool is_mixed() const { return records > 0 && shortest != longest; }
};

struct repair_plan {
    check::data_report before;
    frame_count found;
    int64_t cut_bytes = 0; // half a record at the end
    bool is_needed = false;
    bool becomes_variable = false;
};

// A failure says why the header can't be made. `plan.before` is the check of the file, made before.
outcome plan_repair(const std::string& name, check::file_bytes& bytes, repair_plan& plan);

} // namespace tarsil::tool
