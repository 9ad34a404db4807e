// Making a file under another name first.
#include "tool/new_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace tarsil::tool {

namespace {

// The folder's entry for the file reaches the disk too; where that can't be asked for, it is left
// to the system.
void flush_folder(const std::filesystem::path& folder)
{
    const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    close(descriptor);
}

outcome flush_file(const std::string& name)
{
    const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = descriptor >= 0 && fsync(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0) close(descriptor);
    if (done) return {};
    return failure{name + ": can't be brought to the disk: " + std::strerror(error),
                   "check the disk, and try again"};
}

} // namespace

new_file::new_file(std::string name) : name_(std::move(name))
{
    const std::filesystem::path path(name_);
    const std::string working = fmt::format(".{}.tarsil-new-{}", path.filename().string(),
                                            getpid());
    working_name_ = (path.parent_path() / working).string();
    unlink(working_name_.c_str());
}

new_file::~new_file()
{
    if (!is_kept_) unlink(working_name_.c_str());
}

// A link refuses a name that is taken, which a rename would overwrite; where links aren't to be
// had, the rename has to do.
outcome new_file::keep()
{
    outcome done = flush_file(working_name_);
    if (!done) return done;
    int failed = link(working_name_.c_str(), name_.c_str());
    const bool has_links = failed == 0 || errno == EEXIST;
    if (!has_links && access(name_.c_str(), F_OK) != 0)
        failed = rename(working_name_.c_str(), name_.c_str());
    if (failed != 0)
        return failure{name_ + ": can't be made: " + std::strerror(errno),
                       "choose another name, or look at the folder"};
    if (has_links) unlink(working_name_.c_str());
    is_kept_ = true;
    flush_folder(std::filesystem::path(name_).parent_path());
    return {};
}

} // namespace tarsil::tool
