// Going through a folder that may change meanwhile: what vanishes is passed over, and nothing is
// thrown.
#pragma once

#include <filesystem>

namespace tarsil::tool {

template <class Visit> void each_entry(const std::filesystem::path& folder, Visit&& visit)
{
    namespace fs = std::filesystem;
    std::error_code failed;
    for (fs::directory_iterator at(folder, failed); !failed && at != fs::directory_iterator();
         at.increment(failed))
        visit(at->path());
}

} // namespace tarsil::tool
