// The work of one process; see party.h.
#include "tests/support/party.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace tarsil::support {

namespace {

uint32_t sum_of(const shared_record& record)
{
    uint32_t sum = 2166136261U;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    for (size_t i = 0; i < offsetof(shared_record, sum); ++i) sum = (sum ^ bytes[i]) * 16777619U;
    return sum;
}

void change_payload(shared_record& record, std::mt19937& random)
{
    for (char& byte : record.payload) byte = static_cast<char>(random());
    record.sum = sum_of(record);
}

key_definition key_of_fields(const char* types, std::initializer_list<size_t> offsets)
{
    key_definition made = {};
    made.cursor = 'y';
    made.order = 4;
    made.field_count = static_cast<int32_t>(offsets.size());
    size_t i = 0;
    for (const size_t offset : offsets) {
        made.types[i] = types[i];
        made.lengths[i] = static_cast<int32_t>(sizeof shared_record::name);
        made.offsets[i++] = static_cast<int32_t>(offset);
    }
    return made;
}

} // namespace

shared_record make_record(int32_t owner, int32_t serial, std::mt19937& random)
{
    shared_record record = {};
    record.owner = owner;
    record.serial = serial;
    record.bucket = static_cast<int32_t>(random() % 7);
    std::snprintf(record.name, sizeof record.name, "%c%c%d", 'a' + static_cast<int>(random() % 26),
                  static_cast<int>(random() % 256), static_cast<int>(random() % 50));
    change_payload(record, random);
    return record;
}

bool is_whole(const shared_record& record) { return record.sum == sum_of(record); }

int32_t must(int32_t code, const char* what, std::initializer_list<int32_t> others)
{
    if (code >= 0 || std::find(others.begin(), others.end(), code) != others.end()) return code;
    std::fprintf(stderr, "%s: %d\n", what, static_cast<int>(code));
    throw std::runtime_error(what);
}

int32_t repeat(const std::function<int32_t()>& call, work_done* done)
{
    thread_local std::minstd_rand pauses(std::random_device{}());
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned longest = 20;; longest = std::min(2 * longest, 2000U)) {
        const int32_t code = call();
        if (code != TS_LOCK_REFUSED) return code;
        if (done != nullptr) ++done->refused;
        std::this_thread::sleep_for(std::chrono::microseconds(pauses() % longest));
        if (std::chrono::steady_clock::now() - begin > std::chrono::seconds(60))
            must(code, "refused for a minute");
    }
}

int32_t open_shared(const std::string& name)
{
    const auto open = [&] {
        const int32_t code = tsopend32(name.c_str());
        return code == TS_OPEN_DATA_LOCK_FAILED ? int32_t{TS_LOCK_REFUSED} : code;
    };
    return must(repeat(open), "open");
}

party::party(std::string folder, int32_t own_number, manner how_to_work, bool with_reuse)
    : folder_(std::move(folder)), own(own_number), how(how_to_work), reuse(with_reuse),
      random(static_cast<uint32_t>(own_number) * 7919U + 1U)
{
}

void party::create()
{
    must(tsinit32(), "start");
    must(tsmuser32('y'), "multi-user mode");
    d = must(tscrdata32((folder_ + "/d").c_str(), shared_record_bytes, 0, nullptr), "create");
    key_definition keys[] = {
        key_of_fields("ll", {offsetof(shared_record, owner), offsetof(shared_record, serial)}),
        key_of_fields("s", {offsetof(shared_record, name)}),
        key_of_fields("l", {offsetof(shared_record, bucket)})};
    must(tscrind32(d, (folder_ + "/a").c_str(), 2, keys), "create a");
    must(tscrind32(d, (folder_ + "/b").c_str(), 1, keys + 2), "create b");
}

void party::open()
{
    must(tsinit32(), "start");
    must(tsmuser32('y'), "multi-user mode");
    tsdelow32(reuse ? 'y' : 'n');
    const auto open_index = [&](const char* name) {
        char cursors[] = "yy";
        return tsopeni32(d, (folder_ + name).c_str(), cursors);
    };
    d = open_shared(folder_ + "/d");
    must(repeat([&] { return open_index("/a"); }, &told), "open a");
    must(repeat([&] { return open_index("/b"); }, &told), "open b");
}

void party::close()
{
    must(tsclosed32(d), "close");
    tsfree32();
}

// With the data file and both index files locked, in the order that everybody keeps to.
template <class Deed> void party::as_one_step(Deed&& deed)
{
    if (how == manner::bare) return deed();
    must(repeat([&] { return tslockd32(d); }, &told), "lock the data file");
    must(repeat([&] { return tslocki32(d, index_a); }, &told), "lock a");
    must(repeat([&] { return tslocki32(d, index_b); }, &told), "lock b");
    deed();
    must(tsulocki32(d, index_b), "release b");
    must(tsulocki32(d, index_a), "release a");
    must(tsulockd32(d), "release the data file");
}

// A refused add has stored the record if it is the current one; with reuse the current record can
// be another one by then, and the record may be added twice.
int32_t party::add()
{
    const shared_record record = make_record(own, ++serial, random);
    int32_t code = TS_LOCK_REFUSED;
    as_one_step([&] {
        code = repeat(
            [&] {
                const int32_t answer = tsadd32(d, &record, shared_record_bytes, 'y');
                if (answer != TS_LOCK_REFUSED || how == manner::locking) return answer;
                shared_record current = {};
                int32_t deleted = 0;
                const auto read = [&] { return tsgetcd32(d, &current, &deleted); };
                if (repeat(read) != TS_OK || current.sum != record.sum) return answer;
                ++told.half_adds;
                return int32_t{TS_OK};
            },
            &told);
    });
    if (code == TS_OK) ++told.adds;
    return must(code, "add");
}

int32_t party::some_number()
{
    int32_t count = 0;
    int32_t unused = 0;
    must(repeat([&] { return tsstatd32(d, &count, &unused, &unused, &unused, &unused); }, &told),
         "facts");
    return count == 0 ? 1 : 1 + static_cast<int32_t>(random() % static_cast<uint32_t>(count));
}

void party::remove_or_restore(int32_t what)
{
    const int32_t number = some_number();
    const auto bucket = static_cast<int32_t>(random() % 7);
    as_one_step([&] {
        const auto call = [&] {
            switch (what) {
            case 0: return tsdeld32(d, number);
            case 1: return tsundeld32(d, number);
            case 2: return tsdeli32(d, index_b, 0, &bucket);
            case 3: return tsdelci32(d, index_a, 1);
            default: return tsundeli32(d, index_b, 0, &bucket);
            }
        };
        const int32_t code = must(repeat(call, &told), "delete",
                                  {TS_DELETE_RECORD_DELETED, TS_UNDELETE_RECORD_LIVE,
                                   TS_DELETE_FOUND_DELETED, TS_DELETE_CURSOR_DELETED,
                                   TS_UNDELETE_FOUND_LIVE, TS_CURSOR_NONE, TS_CURSOR_FILE_CHANGED,
                                   TS_FIND_NO_ENTRY, TS_BAD_RECORD_NUMBER});
        told.changed += code == TS_CURSOR_FILE_CHANGED;
    });
}

void party::update(bool with_key)
{
    const int32_t number = some_number();
    as_one_step([&] {
        shared_record record = {};
        shared_record scratch = {};
        int32_t deleted = 0;
        const auto read = [&] { return tsgetd32(d, number, &record, &deleted); };
        check_read(must(repeat(read, &told), "read", {TS_BAD_RECORD_NUMBER}), record);
        if (with_key && how == manner::locking) record = make_record(own, ++serial, random);
        change_payload(record, random);
        const auto write = [&] {
            return tsupd32(d, number, &record, shared_record_bytes, &deleted, &scratch, 2);
        };
        const int32_t code = must(repeat(write, &told), "update",
                                  {TS_UPDATE_RECORD_DELETED, TS_BAD_RECORD_NUMBER});
        if (code == 1) ++told.adds;
        if (with_key && how == manner::locking && code != 1) --serial;
    });
}

void party::check_read(int32_t code, const shared_record& record)
{
    if (code == TS_OK && !is_whole(record)) throw std::runtime_error("a record that isn't whole");
}

void party::read(int32_t what)
{
    shared_record record = {};
    int32_t deleted = 0;
    const auto bucket = static_cast<int32_t>(random() % 7);
    const int32_t number = what == 0 ? some_number() : 0;
    const int32_t pair[] = {own,
                            1 + static_cast<int32_t>(random() % static_cast<uint32_t>(serial + 1))};
    const auto call = [&] {
        switch (what) {
        case 0: return tsgetd32(d, number, &record, &deleted);
        case 1: return tsgeti32(d, index_a, 0, pair, &record, &deleted);
        case 2: return tsgetipp32(d, index_b, 0, &bucket, 1, 0, &record, &deleted);
        case 3:
        case 4: return tsgetni32(d, index_a, 1, &record, &deleted);
        case 5: return tsgetpi32(d, index_b, 0, &record, &deleted);
        default: return tsgetfi32(d, index_a, 1, &record, &deleted);
        }
    };
    const int32_t code = repeat(call, &told);
    constexpr int32_t usual[] = {TS_FIND_NO_ENTRY,     TS_CURSOR_NONE,
                                 TS_NEXT_ENTRY_AT_END, TS_PREVIOUS_ENTRY_AT_START,
                                 TS_WALK_NO_RECORDS,   TS_CURSOR_FILE_CHANGED};
    told.changed += code == TS_CURSOR_FILE_CHANGED;
    told.odd += code < 0 && std::find(std::begin(usual), std::end(usual), code) == std::end(usual);
    check_read(code, record);
}

// Under the locks a walk meets every entry once, in order. A bare one can meet records that others
// have put in the place of those that its copy of a leaf names.
void party::walk_all(bool forward)
{
    shared_record record = {};
    int32_t deleted = 0;
    const auto to_end = [&] {
        return forward ? tsgetfi32(d, index_b, 0, &record, &deleted)
                       : tsgetli32(d, index_b, 0, &record, &deleted);
    };
    const auto step = [&] {
        return forward ? tsgetni32(d, index_b, 0, &record, &deleted)
                       : tsgetpi32(d, index_b, 0, &record, &deleted);
    };
    as_one_step([&] {
        int32_t last = forward ? INT32_MIN : INT32_MAX;
        int32_t code = repeat(to_end, &told);
        for (int32_t steps = 0; code == TS_OK && steps < 100000; ++steps) {
            check_read(code, record);
            const bool in_order = forward ? record.bucket >= last : record.bucket <= last;
            if (!in_order && how == manner::locking) throw std::runtime_error("out of order");
            last = record.bucket;
            code = repeat(step, &told);
            for (; code == TS_CURSOR_FILE_CHANGED; code = repeat(step, &told)) ++told.changed;
        }
        if (how == manner::bare) return;
        must(
            code, "walk",
            {TS_NEXT_ENTRY_AT_END, TS_PREVIOUS_ENTRY_AT_START, TS_CURSOR_NONE, TS_WALK_NO_RECORDS});
    });
}

void party::one_operation()
{
    const auto chance = static_cast<int32_t>(random() % 1000);
    if (chance < 300) {
        add();
        return;
    }
    if (chance < 480) return remove_or_restore(static_cast<int32_t>(random() % 5));
    if (chance < 600) return update(chance < 530);
    if (chance < 603) return walk_all(chance == 601);
    read(static_cast<int32_t>(random() % 7));
}

void party::work(int64_t operations)
{
    for (; operations > 0; --operations) one_operation();
}

} // namespace tarsil::support
