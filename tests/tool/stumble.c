/* For LD_PRELOAD: the process is killed before the call number TOOL_STUMBLE of those that give
 * files their names, take them away, or bring them to the disk. So every state that a kill can
 * leave between two such steps is met. */
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

static void step(void)
{
    static long left = 0;
    const char* const told = getenv("TOOL_STUMBLE");
    if (told == NULL) return;
    if (left == 0) left = atol(told);
    if (--left == 0) kill(getpid(), SIGKILL);
}

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned flags)
{
    step();
    return (int)syscall(SYS_renameat2, from_folder, from, to_folder, to, flags);
}

int rename(const char* from, const char* to) { return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0); }

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags)
{
    step();
    return (int)syscall(SYS_linkat, from_folder, from, to_folder, to, flags);
}

int unlink(const char* name)
{
    step();
    return (int)syscall(SYS_unlinkat, AT_FDCWD, name, 0);
}

int fsync(int descriptor)
{
    step();
    return (int)syscall(SYS_fsync, descriptor);
}

int ftruncate(int descriptor, off_t length)
{
    step();
    return (int)syscall(SYS_ftruncate, descriptor, length);
}
