// What the library does per second, by itself: every kind of operation, alone and in multi-user
// mode.
//
// usage: bench_tarsil32 [RECORDS] (1,000,000 by default). Works in the current folder. The records
// are those of bench/records.h; ids come in random order, so that keys are inserted and looked up
// all over the tree. Each line is one timed pass; memory is the peak so far.
#include <sys/resource.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "bench/records.h"
#include "tarsil32.h"

namespace {

using bench::record;

struct fixture {
    int32_t records;
    std::vector<int32_t> order;
    std::vector<int32_t> other_order;
    const char* mode;
};

void must(int32_t result, const char* step)
{
    if (result >= 0) return;
    std::fprintf(stderr, "bench: %s answered %d\n", step, static_cast<int>(result));
    std::exit(1);
}

long peak_kib()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Times `pass`, which does `calls` calls, and prints the line.
template <class work> void line(const fixture& at, const char* name, int32_t calls, work&& pass)
{
    const auto start = std::chrono::steady_clock::now();
    pass();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%-8s %-44s %12.0f /s %8.3f us %8ld KiB\n", at.mode, name, calls / took.count(),
                took.count() * 1e6 / calls, peak_kib());
    std::fflush(stdout);
}

void add_field(key_definition& key, char type, int32_t length, size_t offset)
{
    key.types[key.field_count] = type;
    key.lengths[key.field_count] = length;
    key.offsets[key.field_count] = static_cast<int32_t>(offset);
    key.field_count += 1;
}

enum key_set : int32_t { id_key, name_key, both_keys, three_keys };

int32_t define_keys(key_set wanted, key_definition (&keys)[3])
{
    for (key_definition& key : keys) {
        key = {};
        key.cursor = 'y';
    }
    int32_t count = 0;
    if (wanted != name_key) add_field(keys[count++], 'i', 4, offsetof(record, id));
    if (wanted != id_key) add_field(keys[count++], 's', 24, offsetof(record, name));
    if (wanted == three_keys) {
        add_field(keys[count], 'i', 4, offsetof(record, group));
        add_field(keys[count++], 'd', 8, offsetof(record, amount));
    }
    return count;
}

void start(const fixture& at)
{
    must(tsinit32(), "tsinit32");
    if (at.mode[0] == 'm') must(tsmuser32('y'), "tsmuser32");
}

int32_t new_data_file(const char* name)
{
    std::remove(name);
    const int32_t data = tscrdata32(name, sizeof(record), 0, nullptr);
    must(data, "tscrdata32");
    return data;
}

int32_t new_index_file(int32_t data, const char* name, key_set wanted)
{
    key_definition keys[3];
    std::remove(name);
    const int32_t index = tscrind32(data, name, define_keys(wanted, keys), keys);
    must(index, "tscrind32");
    return index;
}

void add_all(const fixture& at, int32_t data, char duplicates)
{
    for (const int32_t id : at.order) {
        const record made = bench::make_record(id);
        must(tsadd32(data, &made, 0, duplicates), "tsadd32");
    }
}

void plain_lines(const fixture& at)
{
    record got;
    int32_t deleted = 0;
    const int32_t data = new_data_file("plain.dat");
    line(at, "append, no key", at.records, [&] { add_all(at, data, 'y'); });
    line(at, "read by number, random", at.records, [&] {
        for (const int32_t number : at.other_order)
            must(tsgetd32(data, number + 1, &got, &deleted), "tsgetd32");
    });
    line(at, "sequential read", at.records, [&] {
        for (int32_t code = tsgetfd32(data, &got, &deleted); code == 0;)
            code = tsgetnd32(data, &got, &deleted);
    });
    const struct {
        const char* name;
        key_set keys;
    } builds[] = {{"index build, integer", id_key},
                  {"index build, string of 24", name_key},
                  {"index build, both", both_keys}};
    for (const auto& build : builds) {
        key_definition keys[3];
        const int32_t count = define_keys(build.keys, keys);
        std::remove("built.idx");
        int32_t index = 0;
        line(at, build.name, at.records * count,
             [&] { index = tscrindd32(data, "built.idx", count, keys, &got); });
        must(index, "tscrindd32");
        must(tsclosei32(data, index), "tsclosei32");
    }
    must(tsclosed32(data), "tsclosed32");
}

void keyed_lines(const fixture& at, key_set wanted, const char* add_name)
{
    record got, scratch;
    int32_t deleted = 0;
    const int32_t data = new_data_file("keyed.dat");
    const int32_t index = new_index_file(data, "keyed.idx", wanted);
    line(at, add_name, at.records, [&] { add_all(at, data, 'n'); });
    if (wanted == id_key) {
        line(at, "look-up by key with the record", at.records, [&] {
            for (const int32_t id : at.other_order)
                must(tsgeti32(data, index, 0, &id, &got, &deleted), "tsgeti32");
        });
        line(at, "walk in key order", at.records, [&] {
            int32_t code = tsgetfi32(data, index, 0, &got, &deleted);
            while (code == 0) code = tsgetni32(data, index, 0, &got, &deleted);
        });
        line(at, "update in place by key", at.records, [&] {
            for (const int32_t id : at.other_order) {
                record changed = bench::make_record(id);
                changed.payload[0] = 'y';
                must(tsupi32(data, index, 0, &id, &changed, 0, &deleted, &scratch, 0), "tsupi32");
            }
        });
        line(at, "delete by key", at.records, [&] {
            for (const int32_t id : at.other_order) must(tsdeli32(data, index, 0, &id), "tsdeli32");
        });
    } else {
        line(at, "prefix search, 4 letters", at.records, [&] {
            for (const int32_t id : at.other_order) {
                const record wanted_record = bench::make_record(id);
                must(tsgetip32(data, index, 1, wanted_record.name, 1, 4, &got, &deleted),
                     "tsgetip32");
            }
        });
    }
    must(tsclosed32(data), "tsclosed32");
}

} // namespace

int main(int argument_count, char** arguments)
{
    fixture at = {argument_count > 1 ? std::atoi(arguments[1]) : 1000000, {}, {}, "single"};
    if (at.records < 1) return 2;
    at.order = bench::shuffled(at.records, 1);
    at.other_order = bench::shuffled(at.records, 2);
    for (const char* mode : {"single", "multi"}) {
        at.mode = mode;
        start(at);
        plain_lines(at);
        keyed_lines(at, id_key, "add with one key, no duplicates");
        keyed_lines(at, three_keys, "add with three keys, no duplicates");
        tsfree32();
    }
    return 0;
}
