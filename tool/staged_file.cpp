#include "tool/staged_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool/file_guard.h"
#include "tool/opening.h"

namespace tarsil::tool {

namespace {

namespace paths = std::filesystem;

failure failed_to(const char* what, const std::string& name, int error)
{
    return {name + ": can't be " + what + ": " + std::strerror(error),
            "check the folder, its permissions and its room, and start anew"};
}

outcome flush(const std::string& name, int flags)
{
    const int descriptor = ::open(name.c_str(), flags | O_CLOEXEC);
    if (descriptor < 0) return failed_to("opened", name, errno);
    const int error = fsync(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    if (error == 0 || error == EINVAL) return {};
    return failed_to("written to stable storage", name, error);
}

} // namespace

std::string real_place(const std::string& name)
{
    std::error_code failed;
    const paths::path found = paths::weakly_canonical(paths::absolute(name, failed), failed);
    return failed ? name : found.string();
}

private_files::private_files() : before_(umask(077)) {}
private_files::~private_files() { umask(before_); }

outcome flush_file(const std::string& name) { return flush(name, O_RDONLY); }

outcome flush_folder_of(const std::string& name)
{
    const std::string folder = paths::path(name).parent_path().string();
    return flush(folder.empty() ? "." : folder, O_RDONLY | O_DIRECTORY);
}

outcome rename_file(const std::string& from, const std::string& to)
{
    if (std::rename(from.c_str(), to.c_str()) != 0) return failed_to("renamed", from, errno);
    return {};
}

outcome remove_leftover(const std::string& name)
{
    const file_kind kind = kind_of(name);
    if (kind == file_kind::not_there) return {};
    if (kind == file_kind::other || kind == file_kind::no_file)
        return failure{name + ": stands where a new file is to be made",
                       "remove it if a killed command has left it, or move it away"};
    const answer<file_guard> guard = file_guard::alone(name, 0);
    if (!guard) return guard.why();
    if (unlink(name.c_str()) != 0) return failed_to("removed", name, errno);
    return {};
}

answer<staged_file> staged_file::beside(const std::string& place, const std::string& ending)
{
    staged_file made;
    made.place_ = real_place(place);
    const std::string name = made.place_ + ending;
    const outcome removed = remove_leftover(name);
    if (!removed) return removed.why();
    made.name_ = name;
    return made;
}

staged_file::staged_file(staged_file&& other) noexcept
    : place_(std::move(other.place_)), name_(std::exchange(other.name_, {}))
{
}

staged_file& staged_file::operator=(staged_file&& other) noexcept
{
    if (this == &other) return *this;
    discard();
    place_ = std::move(other.place_);
    name_ = std::exchange(other.name_, {});
    return *this;
}

// The permissions matter more than the owner, which only a privileged user can give.
outcome staged_file::make_durable(const std::string& like) const
{
    struct stat facts = {};
    if (!like.empty() && stat(like.c_str(), &facts) == 0) {
        const uid_t as_it_is = static_cast<uid_t>(-1);
        bool is_given = chown(name_.c_str(), facts.st_uid, facts.st_gid) == 0;
        if (!is_given) is_given = chown(name_.c_str(), as_it_is, facts.st_gid) == 0;
        if (!is_given) errno = 0;
        if (chmod(name_.c_str(), facts.st_mode & 07777) != 0)
            return failed_to("given its permissions", name_, errno);
    }
    return flush_file(name_);
}

outcome staged_file::take_place(exists what)
{
    const unsigned flags = what == exists::refuse ? RENAME_NOREPLACE : 0;
    int answer = renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, place_.c_str(), flags);
    // A file system that doesn't know the flag: a link never replaces anything either.
    if (answer != 0 && errno == EINVAL && flags != 0) {
        answer = link(name_.c_str(), place_.c_str());
        if (answer == 0) unlink(name_.c_str());
    }
    if (answer != 0 && errno == EEXIST)
        return failure{place_ + ": exists already", "choose another name, or remove it first"};
    if (answer != 0) return failed_to("renamed", name_, errno);
    name_.clear();
    return flush_folder_of(place_);
}

void staged_file::discard()
{
    if (!name_.empty()) unlink(name_.c_str());
    name_.clear();
}

} // namespace tarsil::tool
