// Several processes on the same files: four workers draw tickets from one counter and store each
// with a key, at the same time. No number is drawn twice and none is lost.
//
// The library never waits for another process; this face does, for as long as its retry policy
// says. A series of calls becomes one step by a lock that goes with its scope.
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "tarsil32.hpp"

namespace {

using namespace std::chrono_literals;

struct ticket {
    int32_t number;
    int32_t worker;
};

const tarsil::layout fields = tarsil::layout::of<ticket>(
    {TARSIL_FIELD(ticket, number), TARSIL_FIELD(ticket, worker)});

constexpr int32_t workers = 4;
constexpr int32_t tickets_each = 100;

// Calls wait up to 10 seconds in all for others to give way, unless told otherwise.
const tarsil::library_options shared = {.multi_user = true, .wait = tarsil::retry::up_to(10s)};

void create_files()
{
    const auto library = tarsil::library::start(shared).value_or_throw();
    const auto file = library.create("tickets.dat", fields).value_or_throw();
    const auto key = fields.key({"number"}).value_or_throw();
    // The index has to be open while records are added: only then they go into its keys.
    const auto keys = file.create_index("tickets.idx", {&key, 1}).value_or_throw();
    file.add(tarsil::bytes_of(ticket{0, 0})).or_throw();
}

// The highest number and the ticket with the next one belong together: no other process may come in
// between.
void draw(const tarsil::data_file& file, const tarsil::key_cursor& by_number, int32_t worker)
{
    const auto lock = file.lock_all().value_or_throw();
    const auto last = by_number.last().value_or_throw();
    const int32_t number = last.as<ticket>().value_or_throw().number + 1;
    file.add(tarsil::bytes_of(ticket{number, worker})).or_throw();
}

void work(int32_t worker)
{
    const auto library = tarsil::library::start(shared).value_or_throw();
    const auto file = library.open("tickets.dat").value_or_throw();
    const auto keys = file.open_index("tickets.idx").value_or_throw();
    const auto by_number = keys.key(0).value_or_throw();
    for (int32_t i = 0; i < tickets_each; ++i) draw(file, by_number, worker);
    std::printf("worker %d: done, after %d pauses\n", static_cast<int>(worker),
                static_cast<int>(library.waits()));
}

// Every process starts the library by itself: open files don't outlive a fork.
int in_child(int32_t worker)
{
    const pid_t child = fork();
    if (child != 0) return child > 0 ? 0 : 1;
    int code = 0;
    try {
        work(worker);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "worker %d: %s\n", static_cast<int>(worker), problem.what());
        code = 1;
    }
    std::fflush(nullptr);
    _exit(code);
}

// All numbers from 0 on, each once, in key order.
bool are_complete()
{
    const auto library = tarsil::library::start(shared).value_or_throw();
    const auto file = library.open("tickets.dat").value_or_throw();
    const auto keys = file.open_index("tickets.idx").value_or_throw();
    const auto by_number = keys.key(0).value_or_throw();
    int32_t expected = 0;
    for (auto&& one : by_number.all())
        if (one.as<ticket>().value_or_throw().number != expected++) return false;
    by_number.walk_state().or_throw();
    std::printf("%d tickets drawn, no gap\n", static_cast<int>(expected - 1));
    return expected == workers * tickets_each + 1;
}

} // namespace

int main()
{
    try {
        create_files();
        int failures = 0;
        for (int32_t worker = 1; worker <= workers; ++worker) failures += in_child(worker);
        for (int status = 0; wait(&status) > 0;) failures += status == 0 ? 0 : 1;
        return failures == 0 && are_complete() ? 0 : 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "cpp_shared: %s\n", problem.what());
        return 1;
    }
}
