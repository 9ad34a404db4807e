#include "tool/file_guard.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/offsets.h"
#include "tool/holders.h"
#include "tool/signals.h"

namespace tarsil::tool {

namespace {

constexpr off_t share_byte = off_t{1} << 40;
constexpr std::chrono::milliseconds pause{2};

bool set_lock(int descriptor, int kind, off_t first, off_t count)
{
    struct flock wanted = {};
    wanted.l_type = static_cast<short>(kind);
    wanted.l_whence = SEEK_SET;
    wanted.l_start = first;
    wanted.l_len = count;
    int answer = -1;
    do answer = fcntl(descriptor, F_OFD_SETLK, &wanted);
    while (answer != 0 && errno == EINTR);
    return answer == 0;
}

// Asks until it is granted, the time is over or the user has had enough.
template <class Ask> bool ask_until(double seconds, Ask&& ask)
{
    using clock = std::chrono::steady_clock;
    const auto deadline = clock::now() + std::chrono::duration<double>(seconds);
    while (!ask()) {
        if (clock::now() >= deadline || stop_wanted()) return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace

failure open_failure(const std::string& name, int error)
{
    if (error == ENOENT || error == ENOTDIR)
        return {name + ": there is no such file", "check the name"};
    return {name + ": can't be opened: " + std::strerror(error), "check its permissions"};
}

std::string unsteady_text(const std::string& name)
{
    return name + ": " + names_of(holders_of(name)) +
           " has it open and may be changing it; what is read now may be half of a change";
}

file_guard::file_guard(file_guard&& other) noexcept
    : name_(std::move(other.name_)), descriptor_(std::exchange(other.descriptor_, -1)),
      steady_(other.steady_)
{
}

file_guard& file_guard::operator=(file_guard&& other) noexcept
{
    if (this == &other) return *this;
    release();
    name_ = std::move(other.name_);
    descriptor_ = std::exchange(other.descriptor_, -1);
    steady_ = other.steady_;
    return *this;
}

answer<file_guard> file_guard::look(const std::string& name, double wait_seconds)
{
    return take(name, purpose::look, wait_seconds);
}

answer<file_guard> file_guard::alone(const std::string& name, double wait_seconds)
{
    return take(name, purpose::alone, wait_seconds);
}

answer<file_guard> file_guard::open(const std::string& name, purpose what)
{
    const int flags = (what == purpose::look ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NONBLOCK;
    file_guard made;
    made.name_ = name;
    made.descriptor_ = ::open(name.c_str(), flags | O_NOCTTY);
    if (made.descriptor_ < 0) return open_failure(name, errno);
    struct stat facts = {};
    if (fstat(made.descriptor_, &facts) != 0) return open_failure(name, errno);
    if (!S_ISREG(facts.st_mode))
        return failure{name + ": is no regular file", "give the name of a file"};
    return made;
}

bool file_guard::lock(purpose what) const
{
    if (what == purpose::alone) return set_lock(descriptor_, F_WRLCK, share_byte, 1);
    if (!set_lock(descriptor_, F_RDLCK, share_byte, 1)) return false;
    if (set_lock(descriptor_, F_RDLCK, 0, platform::max_file_bytes)) return true;
    set_lock(descriptor_, F_UNLCK, share_byte, 1);
    return false;
}

bool file_guard::is_still_named() const
{
    struct stat opened = {};
    struct stat named = {};
    return fstat(descriptor_, &opened) == 0 && stat(name_.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// A file that was replaced between its open and its lock is opened anew.
answer<file_guard> file_guard::take(const std::string& name, purpose what, double wait_seconds)
{
    answer<file_guard> made = open(name, what);
    if (!made) return made;
    (*made).steady_ = ask_until(wait_seconds, [&] {
        if (!made->lock(what)) return false;
        if (made->is_still_named()) return true;
        answer<file_guard> again = open(name, what);
        if (again) *made = std::move(*again);
        return false;
    });
    if (made->steady_ || what == purpose::look) return made;
    return failure{name + ": " + names_of(holders_of(name)) + " has it open",
                   "close it there, or wait longer with --wait"};
}

outcome file_guard::read(check::file_bytes& bytes) const
{
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor_);
    check::open_result opened = bytes.open(path.c_str());
    if (opened == check::open_result::not_there) opened = bytes.open(name_.c_str());
    switch (opened) {
    case check::open_result::opened: return {};
    case check::open_result::too_large:
        return failure{name_ + ": has more than 2,147,483,647 bytes, which no file of ours has",
                       "check the name"};
    default: return failure{name_ + ": can't be read", "check its permissions"};
    }
}

void file_guard::release()
{
    if (descriptor_ < 0) return;
    set_lock(descriptor_, F_UNLCK, 0, 0);
    close(std::exchange(descriptor_, -1));
}

} // namespace tarsil::tool
