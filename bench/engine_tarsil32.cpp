// TARSIL32 as a program would use it that wants speed: single-user, no write-through, cursors for
// keys that are walked and for no others. Several processes at once use multi-user mode; a refused
// lock is asked for again at once, a refused bracket after a nap.
//
// After a kill the header is made anew (tsrbdbh32) and the index built anew, which is what
// docs/BEHAVIOUR.md asks for after a kill in the middle of an add.
#include <cstddef>

#include <sched.h>
#include <unistd.h>

#include "bench/engine.h"
#include "tarsil32.h"

namespace bench {
namespace {

int32_t data, index_file;
bool shared_mode, restart;
record scratch;
int32_t deleted;

void well(int32_t code, const char* step) { must(code >= 0, step, code); }

// In multi-user mode a refused lock is somebody else's turn: for a call, which is asked for again
// at once, or for a series of them, which is worth a sleep.
enum class turn : uint8_t { of_a_call, of_a_series };
constexpr useconds_t nap = 20; // microseconds

template <class call> int32_t in_turn(call&& step, turn of = turn::of_a_call)
{
    int32_t code = step();
    while ((code == TS_LOCK_REFUSED || code == TS_OPEN_DATA_LOCK_FAILED) && shared_mode) {
        if (of == turn::of_a_series)
            usleep(nap);
        else
            sched_yield();
        code = step();
    }
    return code;
}

void add_field(key_definition& key, char type, int32_t length, size_t offset)
{
    key.types[key.field_count] = type;
    key.lengths[key.field_count] = length;
    key.offsets[key.field_count] = static_cast<int32_t>(offset);
    key.field_count += 1;
}

int32_t define_keys(bool three, char cursor, key_definition (&keys)[3])
{
    for (key_definition& key : keys) {
        key = {};
        key.cursor = cursor;
    }
    add_field(keys[0], 'i', 4, offsetof(record, id));
    if (!three) return 1;
    add_field(keys[1], 's', 24, offsetof(record, name));
    add_field(keys[2], 'i', 4, offsetof(record, group));
    add_field(keys[2], 'd', 8, offsetof(record, amount));
    return 3;
}

void version(char* text, size_t room)
{
    int32_t major = 0, minor = 0;
    well(tsvernum32(0, &major, &minor, 0, 0), "tsvernum32");
    std::snprintf(text, room, "%d.%d", static_cast<int>(major), static_cast<int>(minor));
}

void open_keys(const opening& how)
{
    key_definition keys[3];
    const int32_t count = define_keys(how.kind == three_keys, 'n', keys);
    char cursors[3] = {'n', 'n', 'n'};
    if (how.create) {
        index_file = tscrind32(data, "store.idx", count, keys);
    } else if (how.after_kill) {
        std::remove("store.idx");
        index_file = tscrindd32(data, "store.idx", count, keys, &scratch);
    } else {
        index_file = in_turn([&] { return tsopeni32(data, "store.idx", cursors); },
                             turn::of_a_series);
    }
    well(index_file, "opening the index");
}

void open(const opening& how)
{
    well(tsinit32(), "tsinit32");
    shared_mode = how.shared;
    if (how.shared) well(tsmuser32('y'), "tsmuser32");
    const int32_t length = how.kind == heap_vary ? TS_VARIABLE_LENGTH : fixed_length;
    if (how.create) {
        data = tscrdata32("store.dat", length, 0, nullptr);
    } else if (how.after_kill) {
        data = tsrbdbh32("store.dat", &scratch);
    } else {
        data = in_turn([] { return tsopend32("store.dat"); }, turn::of_a_series);
    }
    well(data, "opening the data file");
    if (how.kind == by_id || how.kind == three_keys) open_keys(how);
    restart = true;
}

void close()
{
    well(in_turn([] { return tsclosed32(data); }), "tsclosed32");
    tsfree32();
}

bool add(const record& added, int32_t length)
{
    const int32_t code = in_turn([&] { return tsadd32(data, &added, length, 'n'); });
    if (code == TS_DUPLICATE_KEY) return false;
    well(code, "tsadd32");
    return true;
}

int32_t scan(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        const int32_t code = restart ? tsgetfd32(data, &out[i], &deleted)
                                     : tsgetnd32(data, &out[i], &deleted);
        restart = code == TS_NEXT_RECORD_AT_END;
        if (restart) return i;
        well(code, "tsgetnd32");
    }
    return count;
}

void build()
{
    key_definition keys[3];
    index_file = tscrindd32(data, "store.idx", define_keys(false, 'y', keys), keys, &scratch);
    well(index_file, "tscrindd32");
    restart = true;
}

int32_t walk(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        const int32_t code = restart ? tsgetfi32(data, index_file, 0, &out[i], &deleted)
                                     : tsgetni32(data, index_file, 0, &out[i], &deleted);
        restart = code == TS_NEXT_ENTRY_AT_END;
        if (restart) return i;
        well(code, "tsgetni32");
    }
    return count;
}

bool look_up(int32_t id, record* out)
{
    const int32_t code = tsgeti32(data, index_file, 0, &id, out, &deleted);
    if (code == TS_FIND_NO_ENTRY) return false;
    well(code, "tsgeti32");
    return deleted == 0;
}

bool find_prefix(const char* name, record* out)
{
    const int32_t code = tsgetip32(data, index_file, 1, name, 1, prefix_length, out, &deleted);
    if (code == TS_PARTIAL_NO_ENTRY) return false;
    well(code, "tsgetip32");
    return true;
}

bool update(const record& changed)
{
    const int32_t code = tsupi32(data, index_file, 0, &changed.id, &changed, 0, &deleted, &scratch,
                                 0);
    if (code == TS_FIND_NO_ENTRY) return false;
    well(code, "tsupi32");
    return true;
}

bool remove(int32_t id)
{
    const int32_t code = tsdeli32(data, index_file, 0, &id);
    if (code == TS_FIND_NO_ENTRY || code == TS_DELETE_FOUND_DELETED) return false;
    well(code, "tsdeli32");
    return true;
}

void begin()
{
    well(in_turn([] { return tslockd32(data); }, turn::of_a_series), "tslockd32");
    well(in_turn([] { return tslocki32(data, index_file); }, turn::of_a_series), "tslocki32");
}

void commit()
{
    well(tsulocki32(data, index_file), "tsulocki32");
    well(tsulockd32(data), "tsulockd32");
}

} // namespace

extern const engine own_engine = {
    "TARSIL32",
    "single-user mode, no write-through, duplicate check on; two processes: multi-user mode",
    true,
    true,
    version,
    open,
    close,
    add,
    scan,
    build,
    walk,
    look_up,
    find_prefix,
    update,
    remove,
    begin,
    commit};

} // namespace bench
