// What is timed, and what is checked of it.
//
// Work goes in batches of 250: the records of a batch are made before the clock starts, and what
// was read is compared byte by byte after it has stopped. After a line that writes all records are
// read back. So a figure holds the engine's calls alone, and no figure is there without its check.
#include "bench/stories.h"

#include <atomic>
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr int32_t batch_size = 250;
constexpr int32_t bracket_size = 1000;
constexpr int32_t kill_records = 200000;

struct scene {
    const engine* with;
    int32_t records;
    int report;
    long own_kib, own_private_kib; // in memory before the store was opened
    std::vector<int32_t> order, other_order;
    record batch[batch_size];
};

double now(clockid_t clock = CLOCK_MONOTONIC)
{
    timespec at = {};
    clock_gettime(clock, &at);
    return static_cast<double>(at.tv_sec) + static_cast<double>(at.tv_nsec) * 1e-9;
}

long status_kib(const char* name)
{
    std::FILE* status = std::fopen("/proc/self/status", "r");
    char text[200];
    long kib = 0;
    while (status != nullptr && std::fgets(text, sizeof text, status) != nullptr)
        if (std::strncmp(text, name, std::strlen(name)) == 0)
            kib = std::atol(text + std::strlen(name));
    if (status != nullptr) std::fclose(status);
    return kib;
}

void reset_peak()
{
    const int file = ::open("/proc/self/clear_refs", O_WRONLY);
    must(file >= 0 && ::write(file, "5", 1) == 1, "resetting the peak of memory", 0);
    ::close(file);
}

void expect(bool well, const char* what, int32_t id) { must(well, what, id); }

void expect_record(const record& got, int32_t id, bool variable, char fill = 'x')
{
    const record wanted = make_record(id, variable, fill);
    expect(std::memcmp(&got, &wanted, sizeof got) == 0, "a record that isn't the one stored", id);
}

void tell(const scene& at, line_id line, double figure, uint64_t checksum)
{
    const measurement made = {line, figure, status_kib("VmHWM:") - at.own_kib,
                              status_kib("RssAnon:") - at.own_private_kib, checksum};
    must(::write(at.report, &made, sizeof made) == sizeof made, "report", 0);
}

// Times `work(first, count)` over all batches; `before` and `after` get the same arguments.
template <class Before, class Work, class After>
void timed(scene& at, line_id line, Before&& before, Work&& work, After&& after)
{
    double took = 0;
    uint64_t checksum = 0;
    reset_peak();
    for (int32_t first = 0; first < at.records; first += batch_size) {
        const int32_t count = std::min(batch_size, at.records - first);
        std::memset(at.batch, 0, sizeof at.batch);
        before(first, count);
        const double start = now(line_clock);
        work(first, count);
        took += now(line_clock) - start;
        after(first, count);
        for (int32_t i = 0; i < count; ++i)
            checksum = checksum * 31 + static_cast<uint64_t>(at.batch[i].id);
    }
    tell(at, line, at.records / took, checksum);
}

constexpr auto nothing = [](int32_t, int32_t) {};

void open_store(scene& at, layout kind, bool create, bool shared = false, bool after_kill = false)
{
    at.own_kib = status_kib("VmRSS:");
    at.own_private_kib = status_kib("RssAnon:");
    at.with->open({kind, create, shared, after_kill, at.records});
}

void time_adds(scene& at, line_id line, bool variable)
{
    timed(
        at, line,
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                at.batch[i] = make_record(at.order[static_cast<size_t>(first + i)], variable);
        },
        [&](int32_t, int32_t count) {
            for (int32_t i = 0; i < count; ++i) {
                const record& added = at.batch[i];
                expect(at.with->add(added, length_of(added.id, variable)), "add", added.id);
            }
        },
        nothing);
}

// Reads `wanted` records by `read`, timed; they have to come in the order told, and no more.
void time_reads(scene& at, line_id line, int32_t (*read)(record*, int32_t), bool variable,
                const int32_t* wanted)
{
    timed(
        at, line, nothing,
        [&](int32_t, int32_t count) { expect(read(at.batch, count) == count, "end", count); },
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i) {
                const int32_t id = wanted != nullptr ? wanted[first + i] : at.batch[i].id;
                expect_record(at.batch[i], id, variable);
                at.other_order[static_cast<size_t>(id)] += 1;
            }
        });
    expect(read(at.batch, 1) == 0, "a record too many", at.batch[0].id);
}

void once_each(scene& at)
{
    for (int32_t& times : at.other_order) {
        expect(times == 1, "a record that wasn't read once", times);
        times = 0;
    }
}

// Every record is there, with this payload; every `but`-th is not.
void read_back(scene& at, char fill, int32_t but = 0)
{
    for (int32_t id = 0; id < at.records; ++id) {
        at.batch[0] = {};
        const bool there = at.with->look_up(id, &at.batch[0]);
        expect(there == (but == 0 || id % but != 0), "a record there or not there", id);
        if (there) expect_record(at.batch[0], id, false, fill);
    }
}

void tell_heap(scene& at, bool variable)
{
    const engine& with = *at.with;
    std::vector<int32_t> by_key(at.order.size());
    std::iota(by_key.begin(), by_key.end(), 0);
    at.other_order.assign(at.order.size(), 0); // how often each record was read
    open_store(at, variable ? heap_vary : heap, true);
    time_adds(at, variable ? line_count : line_append, variable);
    time_reads(at, variable ? line_vary : line_sequential, with.scan, variable,
               with.key_order ? at.order.data() : nullptr);
    once_each(at);
    if (variable || !with.heap_index) return with.close();
    reset_peak();
    const double start = now(line_clock);
    with.build();
    tell(at, line_build, at.records / (now(line_clock) - start), 0);
    time_reads(at, line_walk, with.walk, false, by_key.data());
    once_each(at);
    with.close();
}

// Ids of a batch come from the other order, so that no line meets the keys as they were added.
int32_t other_id(const scene& at, int32_t place)
{
    return at.other_order[static_cast<size_t>(place)];
}

void time_look_ups(scene& at)
{
    timed(
        at, line_look_up, nothing,
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                expect(at.with->look_up(other_id(at, first + i), &at.batch[i]), "look-up", i);
        },
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                expect_record(at.batch[i], other_id(at, first + i), false);
        });
}

void time_updates(scene& at)
{
    timed(
        at, line_update,
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                at.batch[i] = make_record(other_id(at, first + i), false, 'y');
        },
        [&](int32_t, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                expect(at.with->update(at.batch[i]), "update", at.batch[i].id);
        },
        nothing);
}

void tell_keyed(scene& at, bool scale)
{
    const engine& with = *at.with;
    open_store(at, by_id, true);
    time_adds(at, line_add_one, false);
    expect(!with.add(make_record(at.order[0], false), fixed_length), "a duplicate", at.order[0]);
    time_look_ups(at);
    if (!scale) {
        time_updates(at);
        read_back(at, 'y');
        timed(
            at, line_remove, nothing,
            [&](int32_t first, int32_t count) {
                for (int32_t i = 0; i < count; ++i)
                    expect(with.remove(other_id(at, first + i)), "delete", i);
            },
            nothing);
        read_back(at, 'y', 1);
        expect(!with.remove(0), "deleting twice", 0);
    }
    with.close();
}

void tell_three(scene& at)
{
    open_store(at, three_keys, true);
    time_adds(at, line_add_three, false);
    record twin = make_record(at.records, false);
    std::memcpy(twin.name, make_record(0, false).name, sizeof twin.name);
    expect(!at.with->add(twin, fixed_length), "a duplicate name", 0);
    std::vector<record> wanted(batch_size);
    timed(
        at, line_prefix,
        [&](int32_t first, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                wanted[static_cast<size_t>(i)] = make_record(other_id(at, first + i), false);
        },
        [&](int32_t, int32_t count) {
            for (int32_t i = 0; i < count; ++i)
                expect(at.with->find_prefix(wanted[static_cast<size_t>(i)].name, &at.batch[i]),
                       "prefix", i);
        },
        [&](int32_t, int32_t count) {
            for (int32_t i = 0; i < count; ++i) {
                const record& asked = wanted[static_cast<size_t>(i)];
                expect(std::memcmp(at.batch[i].name, asked.name, prefix_length) == 0 &&
                           std::memcmp(at.batch[i].name, asked.name, sizeof asked.name) <= 0,
                       "the first with a prefix", asked.id);
                expect_record(at.batch[i], at.batch[i].id, false);
            }
        });
    at.with->close();
}

// What two processes share while they work.
struct meeting {
    std::atomic<int32_t> ready, returned;
    double start[2], end[2];
    long peak_kib[2];
};

meeting* new_meeting()
{
    void* shared = mmap(nullptr, sizeof(meeting), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    must(shared != MAP_FAILED, "mmap", 0);
    return static_cast<meeting*>(shared);
}

// Runs `work` in a process of its own.
template <class Work> pid_t start_process(Work&& work)
{
    const pid_t made = fork();
    must(made >= 0, "fork", 0);
    if (made == 0) {
        work();
        _exit(0);
    }
    return made;
}

int end_of(pid_t process)
{
    int status = 0;
    must(waitpid(process, &status, 0) == process, "waitpid", 0);
    return status;
}

void add_half(scene& at, meeting& met, int32_t half, bool bracket)
{
    pin_to_core(half);
    const int32_t count = at.records / 2, first = half * count;
    std::vector<record> made;
    for (int32_t i = first; i < first + count; ++i)
        made.push_back(make_record(at.order[static_cast<size_t>(i)], false));
    open_store(at, by_id, false, true);
    reset_peak();
    met.ready += 1;
    const double latest = now() + 60;
    while (met.ready < 2) must(now() < latest, "waiting for the other process", 0);
    met.start[half] = now();
    for (int32_t i = 0; i < count; ++i) {
        if (bracket && i % bracket_size == 0) at.with->begin();
        expect(at.with->add(made[static_cast<size_t>(i)], fixed_length), "add", i);
        if (bracket && (i % bracket_size == bracket_size - 1 || i == count - 1)) at.with->commit();
    }
    met.end[half] = now();
    met.peak_kib[half] = status_kib("VmHWM:") - at.own_kib;
    at.with->close();
}

void tell_two(scene& at, line_id line, bool bracket)
{
    at.records -= at.records % 2;
    start_process([&] { // The store is made in a process of its own, so that none is inherited.
        open_store(at, by_id, true, true);
        at.with->close();
    });
    must(wait(nullptr) > 0, "wait", 0);
    meeting& met = *new_meeting();
    pid_t halves[2];
    for (int32_t half : {0, 1})
        halves[half] = start_process([&] { add_half(at, met, half, bracket); });
    for (const pid_t half : halves) must(end_of(half) == 0, "one of two processes", half);
    const double took = std::max(met.end[0], met.end[1]) - std::min(met.start[0], met.start[1]);
    const pid_t reader = start_process([&] {
        open_store(at, by_id, false, true);
        std::sort(at.order.begin(), at.order.begin() + at.records);
        for (int32_t i = 0; i < at.records; ++i) {
            at.batch[0] = {};
            const int32_t id = at.order[static_cast<size_t>(i)];
            expect(at.with->look_up(id, &at.batch[0]), "look-up", id);
            expect_record(at.batch[0], id, false);
        }
        at.with->close();
    });
    must(end_of(reader) == 0, "reading back", 0);
    const measurement made = {line, at.records / took, std::max(met.peak_kib[0], met.peak_kib[1]),
                              0, 0};
    must(::write(at.report, &made, sizeof made) == sizeof made, "report", 0);
}

// Adds until it is killed, counting the calls that have returned.
void add_until_killed(scene& at, meeting& met, layout kind)
{
    open_store(at, kind, true);
    met.ready = 1;
    for (const int32_t id : at.order) {
        expect(at.with->add(make_record(id, false), fixed_length), "add", id);
        met.returned += 1;
    }
    for (;;) pause();
}

// How many of the first `returned` records aren't there after the kill.
int32_t count_lost(scene& at, layout kind, int32_t returned)
{
    int32_t lost = 0;
    open_store(at, kind, false, false, true);
    for (int32_t i = 0; i < returned; ++i) {
        record got = {};
        const int32_t id = at.order[static_cast<size_t>(i)];
        const record wanted = make_record(id, false);
        const bool there = kind == heap ? at.with->scan(&got, 1) == 1 : at.with->look_up(id, &got);
        lost += !there || std::memcmp(&got, &wanted, sizeof got) != 0;
    }
    return lost;
}

void tell_kill(scene& at, int32_t kills)
{
    const layout kind = at.with->look_up != nullptr ? by_id : heap;
    std::mt19937 delays(std::random_device{}());
    int32_t lost = 0;
    for (int32_t round = 0; round < kills; ++round) {
        meeting& met = *new_meeting();
        const pid_t victim = start_process([&] { add_until_killed(at, met, kind); });
        while (met.ready == 0 && waitpid(victim, nullptr, WNOHANG) == 0) sched_yield();
        usleep(static_cast<useconds_t>(1000 + delays() % 50000));
        kill(victim, SIGKILL);
        must(WIFSIGNALED(end_of(victim)), "a process that was to be killed", 0);
        // The second cell of the meeting carries the answer; a reader that fails finds nothing.
        const int32_t returned = met.returned;
        const pid_t reader = start_process([&] { met.ready = 2 + count_lost(at, kind, returned); });
        lost += end_of(reader) == 0 ? met.ready - 2 : returned;
        must(std::system("rm -rf store*") == 0, "rm", 0);
    }
    tell(at, line_kill, lost, 0);
}

} // namespace

clockid_t line_clock = CLOCK_MONOTONIC;

void run_story(story told, const engine& with, int32_t records, int report)
{
    static scene at; // It holds a batch and is as large as that.
    at.with = &with;
    at.records = told == story_kill ? kill_records : records;
    at.report = report;
    at.order = shuffled(at.records, 1);
    at.other_order = shuffled(at.records, 2);
    switch (told) {
    case story_heap: return tell_heap(at, false);
    case story_vary: return tell_heap(at, true);
    case story_keyed:
    case story_scale: return tell_keyed(at, told == story_scale);
    case story_three: return tell_three(at);
    case story_two:
        tell_two(at, line_two_each, false);
        must(std::system("rm -rf store*") == 0, "rm", 0);
        return tell_two(at, line_two_bracket, true);
    case story_kill: return tell_kill(at, records >= 100000 ? 20 : 2);
    default: return;
    }
}

void pin_to_core(int from_last)
{
    static const cpu_set_t all = [] {
        cpu_set_t cores;
        CPU_ZERO(&cores);
        sched_getaffinity(0, sizeof cores, &cores);
        return cores;
    }();
    cpu_set_t one;
    int core = CPU_SETSIZE;
    do {
        do core -= 1;
        while (core >= 0 && !CPU_ISSET(static_cast<size_t>(core), &all));
    } while (from_last-- > 0);
    if (core < 0) return;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(core), &one);
    sched_setaffinity(0, sizeof one, &one);
}

} // namespace bench
