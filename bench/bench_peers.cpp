// The comparison with other engines: runs every story with every engine, each in a process of its
// own and pinned to a core, and writes results.csv, table.md and two charts into the current
// folder.
//
// Engines take turns within a run, so that a load that comes and goes meets all of them. A store is
// removed after its story. What fails is told, has no figure, and makes the program end with 1.
#include <ctime>
#include <string>

#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/report.h"
#include "bench/stories.h"

namespace {

using namespace bench;

constexpr const engine* engines[] = {
    &own_engine,
#ifdef BENCH_WITH_SQLITE
    &sqlite_engine,
#endif
#ifdef BENCH_WITH_LMDB
    &lmdb_engine,
#endif
#ifdef BENCH_WITH_BERKELEY
    &berkeley_engine,
#endif
#ifdef BENCH_WITH_LEVELDB
    &leveldb_engine,
#endif
#ifdef BENCH_WITH_TDB
    &tdb_engine,
#endif
#ifdef BENCH_WITH_TOKYO
    &tokyo_engine,
#endif
};

struct wishes {
    int32_t records = 1000000;
    int32_t runs = 1;
    bool large = false;
    std::string engine_names, stories; // empty: all
    const char* report = nullptr;
};

struct session {
    wishes wanted;
    std::FILE* csv;
    uint64_t checksums[line_count];
    bool failed;
};

int usage()
{
    std::fputs(
        "usage: bench_peers [--records N] [--runs N] [--large] [--cpu-time] [--engines A,B...] "
        "[--stories heap,keyed,three,vary,two,kill,scale]\n"
        "       bench_peers --report CSV    tables and charts of a file made before\n"
        "Works in the current folder. --large adds ten times as many records to the "
        "stories of scale. --cpu-time counts the time of the processor, for busy machines; two "
        "processes are always timed by the wall clock.\n",
        stderr);
    return 2;
}

bool read_wishes(int count, char** arguments, wishes* wanted)
{
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--large") {
            wanted->large = true;
            continue;
        }
        if (name == "--cpu-time") {
            line_clock = CLOCK_PROCESS_CPUTIME_ID;
            continue;
        }
        if (++i == count) return false;
        const char* value = arguments[i];
        if (name == "--records")
            wanted->records = std::atoi(value);
        else if (name == "--runs")
            wanted->runs = std::atoi(value);
        else if (name == "--engines")
            wanted->engine_names = value;
        else if (name == "--stories")
            wanted->stories = value;
        else if (name == "--report")
            wanted->report = value;
        else
            return false;
    }
    return wanted->records >= 100 && wanted->records <= 10000000 && wanted->runs >= 1;
}

bool among(const std::string& names, const char* name)
{
    return names.empty() || ("," + names + ",").find("," + std::string(name) + ",") != names.npos;
}

bool takes_part(const engine& with, story told)
{
    switch (told) {
    case story_keyed: return with.look_up != nullptr;
    case story_three: return with.find_prefix != nullptr;
    case story_two: return with.begin != nullptr;
    case story_scale: return with.look_up != nullptr && with.key_order;
    default: return true;
    }
}

// The measurements of one story by one engine, told by a process of its own through a pipe.
void measure(session& at, const engine& with, story told, int32_t records, int32_t run)
{
    int ends[2];
    must(pipe(ends) == 0, "pipe", 0);
    const pid_t child = fork();
    must(child >= 0, "fork", 0);
    if (child == 0) {
        ::close(ends[0]);
        pin_to_core(0);
        run_story(told, with, records, ends[1]);
        std::exit(0);
    }
    ::close(ends[1]);
    measurement got;
    while (::read(ends[0], &got, sizeof got) == sizeof got) {
        if (got.line >= line_count) continue; // a preparation
        std::fprintf(at.csv, "%s,%s,%ld,%ld,%.0f,%ld,%ld\n", lines[got.line].key, with.name,
                     static_cast<long>(records), static_cast<long>(run), got.figure,
                     static_cast<long>(got.peak_kib), static_cast<long>(got.private_kib));
        if (told == story_scale || !with.key_order) continue; // other numbers of records; a hash
        uint64_t& first = at.checksums[got.line];
        if (first == 0) first = got.checksum;
        if (got.checksum == first) continue;
        std::fprintf(stderr, "bench: %s read other records than the others on line %s\n", with.name,
                     lines[got.line].key);
        at.failed = true;
    }
    ::close(ends[0]);
    int status = 0;
    must(waitpid(child, &status, 0) == child, "waitpid", 0);
    if (status != 0) {
        std::fprintf(stderr, "bench: story %s failed with %s\n", story_names[told], with.name);
        at.failed = true;
    }
    std::fflush(at.csv);
    must(std::system("rm -rf store*") == 0, "rm", 0);
}

void tell_story(session& at, story told, int32_t records, int32_t run)
{
    if (!among(at.wanted.stories, story_names[told])) return;
    for (const engine* with : engines)
        if (takes_part(*with, told) && among(at.wanted.engine_names, with->name)) {
            std::fprintf(stderr, "run %ld, %s, %s\n", static_cast<long>(run), story_names[told],
                         with->name);
            measure(at, *with, told, records, run);
        }
}

// The first line of the file that starts so; what stands before a colon isn't printed.
void print_line_of(const char* file, const char* start, std::FILE* to)
{
    char text[300];
    std::FILE* from = std::fopen(file, "r");
    while (from != nullptr && std::fgets(text, sizeof text, from) != nullptr) {
        if (std::strncmp(text, start, std::strlen(start)) != 0) continue;
        const char* colon = std::strstr(text, ": ");
        const char* shown = colon != nullptr ? colon + 1 : text;
        shown += std::strspn(shown, " ");
        std::fprintf(to, "%.*s", static_cast<int>(std::strcspn(shown, "\n")), shown);
        break;
    }
    if (from != nullptr) std::fclose(from);
}

void write_remarks(const session& at)
{
    utsname machine = {};
    uname(&machine);
    char today[32];
    const std::time_t time = std::time(nullptr);
    std::strftime(today, sizeof today, "%Y-%m-%d %H:%M UTC", std::gmtime(&time));
    std::fprintf(at.csv, "# %s; %s %s %s; ", today, machine.sysname, machine.release,
                 machine.machine);
    print_line_of("/proc/cpuinfo", "model name", at.csv);
    std::fprintf(at.csv, "; %ld cores; memory ", sysconf(_SC_NPROCESSORS_ONLN));
    print_line_of("/proc/meminfo", "MemTotal", at.csv);
    double load[3] = {};
    getloadavg(load, 3);
    std::fprintf(at.csv, "; load before the run %.1f %.1f %.1f", load[0], load[1], load[2]);
    std::fprintf(at.csv, "\n# %ld records, median of %ld runs (± half the spread), by %s\n",
                 static_cast<long>(at.wanted.records), static_cast<long>(at.wanted.runs),
                 line_clock == CLOCK_MONOTONIC ? "wall clock"
                                               : "time of the processor, as the machine was busy");
    for (const engine* with : engines) {
        char version[40];
        with->version(version, sizeof version);
        std::fprintf(at.csv, "# %s %s: %s\n", with->name, version, with->setting);
    }
    std::fprintf(at.csv, "line,engine,records,run,figure,peak_kib,private_kib\n");
    std::fflush(at.csv);
}

} // namespace

int main(int count, char** arguments)
{
    session at = {};
    if (!read_wishes(count, arguments, &at.wanted)) return usage();
    if (at.wanted.report == nullptr) {
        pin_to_core(1);
        at.csv = std::fopen("results.csv", "w");
        must(at.csv != nullptr, "results.csv", 0);
        write_remarks(at);
        const int32_t records = at.wanted.records;
        for (int32_t run = 1; run <= at.wanted.runs; ++run) {
            for (int32_t told = 0; told < story_scale; ++told)
                tell_story(at, static_cast<story>(told), records, run);
            tell_story(at, story_scale, records / 100, run);
            tell_story(at, story_scale, records / 10, run);
        }
        if (at.wanted.large) tell_story(at, story_scale, records * 10, 1);
        std::fclose(at.csv);
    }
    write_report(read_results(at.wanted.report == nullptr ? "results.csv" : at.wanted.report));
    return at.failed ? 1 : 0;
}
