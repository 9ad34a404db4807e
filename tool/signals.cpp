// The signal handlers. They note the wish and nothing else; SA_RESETHAND gives the second signal
// its usual meaning back.
#include "tool/signals.h"

#include <csignal>
#include <initializer_list>

namespace tarsil::tool {

namespace {

volatile std::sig_atomic_t wanted = 0;

extern "C" void note_wish(int) { wanted = 1; }

} // namespace

void catch_signals()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        action.sa_handler = note_wish;
        action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
        sigaction(number, &action, nullptr);
    }
}

bool stop_wanted() { return wanted != 0; }

} // namespace tarsil::tool
