// The handler for bus errors under our copies; see platform/bus_error.h.
//
// It calls nothing but mmap, which on Linux is a bare system call, and keeps errno. After it
// returns, the machine repeats the instruction that failed, and finds the fresh page. What is not
// ours is passed on as the kernel would have delivered it, with the signals blocked that the
// handler before had asked for. Somebody who installs a handler above ours while files are mapped
// is expected to pass on what he gets, as programs do that find a handler in place; since that
// can't be checked, no further file is mapped until he has gone.
#include "platform/bus_error.h"

#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

namespace tarsil::platform {

volatile copy_in_progress guarded_copy = {0, 0, 0};

namespace {

int32_t guards = 0;
bool stands = false;          // installed, and not taken away since; perhaps under somebody else's
struct sigaction before = {}; // who stood there when ours was installed
uintptr_t page_bytes = 0;

// Gives the copy in progress fresh pages from the fault to its end. They hold zeros and belong to
// nobody: the mapping is given up after the copy.
bool replace_pages(const siginfo_t& fault)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(fault.si_addr);
    const uintptr_t in_page = address & (page_bytes - 1);
    const uintptr_t page = address - in_page;
    const uintptr_t first_page = guarded_copy.begin & ~(page_bytes - 1);
    const bool by_kernel = fault.si_code > 0;
    if (!by_kernel || page < first_page || page >= guarded_copy.end) return false;

    constexpr int protection = PROT_READ | PROT_WRITE;
    constexpr int kind = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED;
    uint8_t* const place = static_cast<uint8_t*>(fault.si_addr) - in_page;
    if (mmap(place, guarded_copy.end - page, protection, kind, -1, 0) == MAP_FAILED) return false;
    guarded_copy.has_failed = 1;
    return true;
}

// The default action strikes when the failing instruction is repeated; a signal that somebody sent
// has to be sent again, and waits until the handler has returned.
void take_default_action(const siginfo_t& facts)
{
    static_cast<void>(signal(SIGBUS, SIG_DFL));
    if (facts.si_code <= 0) static_cast<void>(raise(SIGBUS));
}

void pass_on(int number, siginfo_t* facts, void* context)
{
    if ((before.sa_flags & SA_SIGINFO) != 0) {
        before.sa_sigaction(number, facts, context);
        return;
    }
    const bool is_sent = facts->si_code <= 0;
    if (before.sa_handler == SIG_IGN && is_sent) return;
    if (before.sa_handler == SIG_IGN || before.sa_handler == SIG_DFL)
        take_default_action(*facts); // a fault can't be ignored
    else
        before.sa_handler(number);
}

void on_bus_error(int number, siginfo_t* facts, void* context)
{
    const int error = errno;
    const bool ours = replace_pages(*facts);
    errno = error;
    if (!ours) pass_on(number, facts, context);
}

bool is_blocked()
{
    sigset_t blocked;
    return pthread_sigmask(SIG_BLOCK, nullptr, &blocked) != 0 || sigismember(&blocked, SIGBUS) != 0;
}

bool is_ours(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_bus_error;
}

} // namespace

bool stand_guard()
{
    struct sigaction present = {};
    if (is_blocked() || sigaction(SIGBUS, nullptr, &present) != 0) return false;
    if (!is_ours(present)) {
        if (stands) return false;
        before = present;
        page_bytes = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        struct sigaction own = {};
        own.sa_sigaction = on_bus_error;
        own.sa_mask = present.sa_mask;
        own.sa_flags = SA_SIGINFO | SA_ONSTACK | (present.sa_flags & (SA_RESTART | SA_NODEFER));
        if (sigaction(SIGBUS, &own, nullptr) != 0) return false;
    }
    stands = true;
    ++guards;
    return true;
}

void leave_guard()
{
    --guards;
    if (guards > 0) return;

    struct sigaction present = {};
    if (sigaction(SIGBUS, nullptr, &present) != 0 || !is_ours(present)) return;
    stands = sigaction(SIGBUS, &before, nullptr) != 0;
}

} // namespace tarsil::platform
