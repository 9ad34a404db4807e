/* For LD_PRELOAD: the process is killed before the call number TOOL_STUMBLE of those that give
 * files their names, take them away, or bring them to the disk. So every state that a kill can
 * leave between two such steps is met. */
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

/* Gives the call back, so that it stands where it is made. */
static long step(long call)
{
    static long left = 0;
    const char* const told = getenv("TOOL_STUMBLE");
    if (told == NULL) return call;
    if (left == 0) left = atol(told);
    if (--left == 0) kill(getpid(), SIGKILL);
    return call;
}

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned flags)
{
    return (int)syscall(step(SYS_renameat2), from_folder, from, to_folder, to, flags);
}

int rename(const char* from, const char* to) { return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0); }

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags)
{
    return (int)syscall(step(SYS_linkat), from_folder, from, to_folder, to, flags);
}

int unlink(const char* name) { return (int)syscall(step(SYS_unlinkat), AT_FDCWD, name, 0); }

int fsync(int descriptor) { return (int)syscall(step(SYS_fsync), descriptor); }

int ftruncate(int descriptor, off_t length)
{
    return (int)syscall(step(SYS_ftruncate), descriptor, length);
}
