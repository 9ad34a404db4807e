// A file that stands under its name only when it is whole: it is made under another name in the
// same folder and renamed at the end. Whatever interrupts the work leaves nothing under the name,
// and at most a file `.NAME.tarsil-new-PID` beside it.
#pragma once

#include <string>

#include "tool/failure.h"

namespace tarsil::tool {

class new_file {
public:
    explicit new_file(std::string name);
    ~new_file();
    new_file(const new_file&) = delete;
    new_file& operator=(const new_file&) = delete;

    const std::string& name_until_whole() const { return working_name_; }

    // Renames the file, unless something has come to stand under the name meanwhile.
    outcome keep();

private:
    std::string name_;
    std::string working_name_;
    bool is_kept_ = false;
};

} // namespace tarsil::tool
