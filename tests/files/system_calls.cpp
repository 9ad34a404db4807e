#include "tests/files/system_calls.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

using tarsil::support::calls_made;
using tarsil::support::file_system_kind;
using tarsil::support::planned;
using tarsil::support::system_call;

bool is_met(system_call kind)
{
    if (kind == system_call::none) return false;
    if (calls_made.size() < 100) calls_made += static_cast<char>(kind);
    if (planned.kind != kind || planned.left == 0) return false;
    if (planned.left > 1) {
        --planned.left;
        return false;
    }
    if (!planned.for_good) planned.left = 0;
    ++planned.met;
    return true;
}

// The bytes that a transfer may move; -1 for none.
ssize_t granted(system_call kind, size_t bytes)
{
    if (!is_met(kind)) return static_cast<ssize_t>(bytes);
    errno = planned.error;
    return planned.error == 0 ? static_cast<ssize_t>((bytes + 1) / 2) : -1;
}

template <class Answer = int, class... Arguments>
Answer call(system_call kind, long number, Arguments... arguments)
{
    if (!is_met(kind)) return static_cast<Answer>(syscall(number, arguments...));
    errno = planned.error;
    return -1;
}

system_call kind_of_control(int command)
{
    if (command == F_OFD_SETLK) return system_call::lock;
    if (command == F_OFD_GETLK) return system_call::question;
    return command == F_DUPFD_CLOEXEC ? system_call::raise : system_call::none;
}

} // namespace

extern "C" {

ssize_t pread64(int file, void* buffer, size_t bytes, off64_t offset)
{
    const ssize_t wanted = granted(system_call::read, bytes);
    return wanted < 0 ? -1 : syscall(SYS_pread64, file, buffer, wanted, offset);
}

ssize_t pwrite64(int file, const void* buffer, size_t bytes, off64_t offset)
{
    const ssize_t wanted = granted(system_call::write, bytes);
    return wanted < 0 ? -1 : syscall(SYS_pwrite64, file, buffer, wanted, offset);
}

int fcntl64(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const auto rest = va_arg(arguments, void*);
    va_end(arguments);
    return call(kind_of_control(command), SYS_fcntl, file, command, rest);
}

int open64(const char* name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto rest = va_arg(arguments, unsigned);
    va_end(arguments);
    return call(system_call::open, SYS_openat, AT_FDCWD, name, flags, rest);
}

int close(int file) { return call(system_call::close, SYS_close, file); }

int fsync(int file) { return call(system_call::flush, SYS_fsync, file); }

int fdatasync(int file) { return call(system_call::sync, SYS_fdatasync, file); }

int syncfs(int file) noexcept { return call(system_call::flush_all, SYS_syncfs, file); }

int fstat64(int file, struct stat64* facts) noexcept
{
    const bool fails = is_met(system_call::facts);
    errno = planned.error;
    if (fails && planned.error != 0) return -1;
    const long answer = syscall(SYS_fstat, file, facts);
    if (fails) facts->st_size += 10000;
    return static_cast<int>(answer);
}

int stat64(const char* name, struct stat64* facts) noexcept
{
    return call(system_call::by_name, SYS_newfstatat, AT_FDCWD, name, facts, 0);
}

int fstatfs64(int file, struct statfs64* facts) noexcept
{
    const int answer = call(system_call::facts_of_disk, SYS_fstatfs, file, facts);
    if (file_system_kind != 0) facts->f_type = file_system_kind;
    return static_cast<int>(answer);
}

int linkat(int from, const char* old_name, int to, const char* name, int flags) noexcept
{
    return call(system_call::link, SYS_linkat, from, old_name, to, name, flags);
}

ssize_t readlink(const char* link, char* name, size_t bytes) noexcept
{
    return call<ssize_t>(system_call::name_of, SYS_readlinkat, AT_FDCWD, link, name, bytes);
}

int renameat2(int from, const char* old_name, int to, const char* name, unsigned flags) noexcept
{
    return call(system_call::rename, SYS_renameat2, from, old_name, to, name, flags);
}

int unlink(const char* name) noexcept
{
    return call(system_call::remove, SYS_unlinkat, AT_FDCWD, name, 0);
}

void* mmap64(void* place, size_t bytes, int protection, int flags, int file, off64_t at) noexcept
{
    const system_call kind = file >= 0 ? system_call::map : system_call::none;
    return reinterpret_cast<void*>( // NOLINT
        call<long>(kind, SYS_mmap, place, bytes, protection, flags, file, at));
}

int posix_fallocate64(int file, off64_t offset, off64_t bytes)
{
    const bool fails = is_met(system_call::room);
    if (fails && planned.error != 0) return planned.error;
    if (syscall(SYS_fallocate, file, 0, offset, fails ? bytes / 2 : bytes) != 0) return errno;
    return fails ? ENOSPC : 0;
}

int fallocate64(int file, int mode, off64_t offset, off64_t bytes)
{
    return call(system_call::hole, SYS_fallocate, file, mode, offset, bytes);
}

int ftruncate64(int file, off64_t bytes) noexcept
{
    return call(system_call::cut, SYS_ftruncate, file, bytes);
}

int futimens(int file, const struct timespec times[2]) noexcept
{
    return call(system_call::time, SYS_utimensat, file, nullptr, times, 0);
}

int getrlimit64(__rlimit_resource_t resource, struct rlimit64* limit) noexcept
{
    return call(system_call::limit, SYS_prlimit64, 0, resource, nullptr, limit);
}
}
