// The work of one process; see party.h.
#include "tests/support/party.h"

#include "tests/support/file_parts.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace tarsil::support {

namespace {

constexpr size_t room_bytes = size_t{64} << 20;

// All keys of all index files; an index file has those that stand together.
struct key_place {
    int32_t index;
    int32_t key;
    const char* types;
    size_t offsets[2];
};
constexpr size_t key_count = 4;
constexpr key_place keys[key_count] = {
    {0, 0, "ll", {offsetof(shared_record, owner), offsetof(shared_record, serial)}},
    {0, 1, "s", {offsetof(shared_record, name)}},
    {1, 0, "l", {offsetof(shared_record, bucket)}},
    {2, 0, "ls", {offsetof(shared_record, bucket), offsetof(shared_record, name)}},
};

key_definition definition_of(const key_place& place)
{
    std::vector<key_part> parts;
    for (size_t i = 0; place.types[i] != 0; ++i)
        parts.push_back(
            {place.types[i], sizeof shared_record::name, static_cast<int32_t>(place.offsets[i])});
    return define_key(4, parts);
}

std::string value_of(const key_place& place, const shared_record& record)
{
    std::string value;
    for (size_t i = 0; place.types[i] != 0; ++i)
        value.append(reinterpret_cast<const char*>(&record) + place.offsets[i],
                     place.types[i] == 's' ? sizeof record.name : sizeof record.bucket);
    return value;
}

void rewrite(shared_record& record, std::mt19937& random)
{
    ++record.version;
    for (int32_t i = shortest_record; i < record.length; i += 4)
        record.payload[i - shortest_record] = static_cast<char>(random());
    record.sum = sum_of(record);
}

// What isn't there, or no longer: an answer to every search and step.
constexpr std::initializer_list<int32_t> nothing_there = {
    TS_FIND_NO_ENTRY,     TS_PARTIAL_NO_ENTRY,        TS_CURSOR_NONE,
    TS_NEXT_ENTRY_AT_END, TS_PREVIOUS_ENTRY_AT_START, TS_WALK_NO_RECORDS};

// What docs/LOCKING.md tells of searches and cursors beside others without locks: a way through
// nodes that others split can end at what is no node or no record, and a number of records that
// changed is told.
constexpr std::initializer_list<int32_t> told_beside_others = {
    TS_CURSOR_FILE_CHANGED, TS_PREVIOUS_ENTRY_LOST, TS_NEXT_ENTRY_LOST, TS_NODE_READ_SHORT,
    TS_NODE_READ_POSITION,  TS_NODE_DAMAGED,        TS_BODY_READ_SHORT};

// Ways to a record that is to be changed, and what is done to it; and the refusals of those that
// have been done already.
enum : int32_t { by_number, by_key, at_cursor, route_count };
enum : int32_t { remove_it, restore_it, rewrite_it, verb_count };
constexpr int32_t done_already[route_count][verb_count] = {
    {TS_DELETE_RECORD_DELETED, TS_UNDELETE_RECORD_LIVE, TS_UPDATE_RECORD_DELETED},
    {TS_DELETE_FOUND_DELETED, TS_UNDELETE_FOUND_LIVE, TS_UPDATE_FOUND_DELETED},
    {TS_DELETE_CURSOR_DELETED, TS_UNDELETE_CURSOR_LIVE, TS_UPDATE_CURSOR_DELETED},
};

} // namespace

party::party(const agreement& terms, int32_t own_number)
    : agreed(terms), own(own_number), locking(terms.how == manner::locking),
      reuse(terms.fixed && own_number % 2 == 0),
      random(terms.seed * 8U + static_cast<uint32_t>(own_number)), room(new char[room_bytes])
{
}

void party::create()
{
    start_shared();
    const int32_t length = agreed.fixed ? fixed_record_bytes : TS_VARIABLE_LENGTH;
    d = must(tscrdata32((agreed.folder + "/d").c_str(), length, 0, nullptr), "create");
    for (int32_t index = 0; index < index_files; ++index) {
        key_definition made[key_count];
        int32_t count = 0;
        for (const key_place& each : keys)
            if (each.index == index) made[count++] = definition_of(each);
        const std::string name = agreed.folder + "/" + std::to_string(index);
        must(tscrind32(d, name.c_str(), count, made), "create an index");
    }
}

void party::open()
{
    start_shared();
    tsdelow32(reuse ? 'y' : 'n');
    d = open_shared(agreed.folder + "/d");
    for (int32_t index = 0; index < index_files; ++index) {
        const std::string name = agreed.folder + "/" + std::to_string(index);
        char cursors[] = "yy";
        must(repeat([&] { return tsopeni32(d, name.c_str(), cursors); }, &told), "open an index");
    }
}

void party::close()
{
    must(tsclosed32(d), "close");
    tsfree32();
}

// Under all locks nothing that others do can refuse a call.
int32_t party::answer(const std::function<int32_t()>& call)
{
    if (!all_locked) return repeat(call, &told);
    const int32_t code = call();
    ensure(code != TS_LOCK_REFUSED, "a call that was refused under all locks");
    return code;
}

void party::take_facts()
{
    int32_t unused = 0;
    const auto ask = [&] {
        return tsstatd32(d, &records, &deleted_records, &unused, &unused, &unused);
    };
    must(answer(ask), "facts");
}

// With the data file and all index files locked, in the order that everybody keeps to. Asking for
// the facts under the locks takes notice of what has changed, so that no cursor is told of it.
template <class Deed> void party::as_one_step(Deed&& deed)
{
    if (!locking) return deed();
    must(repeat([&] { return tslockd32(d); }, &told), "lock the data file");
    for (int32_t index = 0; index < index_files; ++index)
        must(repeat([&] { return tslocki32(d, index); }, &told), "lock an index file");
    all_locked = true;
    take_facts();
    deed();
    all_locked = false;
    for (int32_t index = index_files - 1; index >= 0; --index)
        must(tsulocki32(d, index), "release an index file");
    must(tsulockd32(d), "release the data file");
}

// A purge elsewhere can have taken the number away meanwhile.
template <class Deed> void party::with_record_locked(int32_t number, Deed&& deed)
{
    const auto lock = [&] { return tslockdr32(d, number); };
    if (must(answer(lock), "lock", {TS_RECORD_LOCK_BAD_NUMBER}) < 0) return;
    deed();
    must(answer([&] { return tsulckdr32(d, number); }), "release");
}

shared_record party::make_record()
{
    shared_record record = {};
    record.length = fixed_record_bytes;
    if (!agreed.fixed)
        record.length = shortest_record +
                        static_cast<int32_t>(random() % (random() % 16 ? 60 : 4990));
    record.owner = own;
    record.serial = ++serial;
    record.bucket = static_cast<int32_t>(random() % 7);
    std::snprintf(record.name, sizeof record.name, "%c%c%d", 'a' + static_cast<int>(random() % 26),
                  static_cast<int>(65 + 60 * (random() % 4)), static_cast<int>(random() % 10));
    rewrite(record, random);
    return record;
}

// A record like one that somebody has added, if possible a live one.
shared_record party::look_alike()
{
    shared_record record = make_record();
    --serial;
    for (int tries = 0; tries < 8 && agreed.book->of(record) <= 0; ++tries) {
        record.owner = 1 + static_cast<int32_t>(random() % (ledger::most_owners - 1));
        record.serial = 1 + static_cast<int32_t>(random() % static_cast<uint32_t>(serial + 1));
    }
    return record;
}

// A refused add has stored the record if it is the current one. With reuse the current record can
// be another one by then, and the record may be added twice; the ledger then isn't asked.
void party::add(char duplicates)
{
    const shared_record record = make_record();
    const auto is_there = [&] {
        const auto current = [&] { return tsgetcd32(d, room.get(), &deleted); };
        return answer(current) == TS_OK && seen().serial == serial && seen().owner == own;
    };
    const auto call = [&] {
        const int32_t code = tsadd32(d, &record, record.length, duplicates);
        if (code != TS_LOCK_REFUSED || locking || !is_there()) return code;
        ++told.half_adds;
        return int32_t{TS_OK};
    };
    as_one_step([&] {
        if (must(answer(call), "add", {TS_DUPLICATE_KEY}) != TS_OK) return;
        ++told.adds;
        agreed.book->of(record) = 1;
        if (reuse) return;
        int32_t number = 0;
        int32_t length = 0;
        must(answer([&] { return tsrecd32(d, &number, &deleted, &length); }), "its number");
        ensure(length == record.length, "an add that isn't the current record");
        ensure(locking ? number == records + 1 : ++agreed.book->numbered[number] == 1,
               "two records of one number");
    });
}

// In a file of variable length one of the first, as it is walked to.
int32_t party::some_number()
{
    take_facts();
    const int32_t end = agreed.fixed ? records : std::min(records, 10);
    return 1 + static_cast<int32_t>(random() % static_cast<uint32_t>(std::max(end, 1)));
}

int32_t party::place(size_t key)
{
    const key_place& at = keys[key];
    const std::string value = value_of(at, look_alike());
    const auto last = static_cast<uint32_t>(1 + random() % 3);
    const auto kind = random() % 4;
    const auto call = [&] {
        switch (kind) {
        case 0: return tsgetip32(d, at.index, at.key, value.data(), 1, last, room.get(), &deleted);
        case 1: return tsgetipp32(d, at.index, at.key, value.data(), 1, last, room.get(), &deleted);
        default: return tsgeti32(d, at.index, at.key, value.data(), room.get(), &deleted);
        }
    };
    if (random() % 4 == 0) return by(random() % 2 ? tsgetfi32 : tsgetli32, key);
    return answer(call);
}

int32_t party::by(index_reader call, size_t key)
{
    const key_place& at = keys[key];
    return answer([&] { return call(d, at.index, at.key, room.get(), &deleted); });
}

// Without locks a search beside splits can end in a code, a cursor is told of changes, and what was
// placed before a purge leads anywhere. With them a record is what the ledger says.
void party::check_read(int32_t code, int64_t epoch, bool locked)
{
    if (code < 0) {
        if (is_one_of(code, nothing_there)) return;
        if (locked) must(code, "a read under locks");
        must(code, "a read beside others", told_beside_others);
        ++(code == TS_CURSOR_FILE_CHANGED ? told.changed : told.odd);
        return;
    }
    const bool undisturbed = agreed.book->purges == epoch && epoch % 2 == 0;
    ensure(!undisturbed || is_whole(seen()), "a record that isn't whole");
    const int32_t version = deleted == 1 ? -seen().version : seen().version;
    if (locked) ensure(agreed.book->of(seen()) == version, "a record that is out of date");
}

void party::read(bool locked)
{
    constexpr index_reader steps[] = {tsgetci32, tsgetni32, tsgetni32, tsgetpi32, tsgetpi32};
    const size_t key = random() % key_count;
    const int64_t epoch = agreed.book->purges;
    const int32_t code = place(key);
    check_read(code, epoch, locked);
    for (auto left = code < 0 ? 0 : random() % 4; left > 0; --left)
        check_read(by(steps[random() % 5], key), epoch, locked);
}

void party::read_by_number()
{
    const int64_t epoch = agreed.book->purges;
    const int32_t number = some_number();
    const int32_t code = pick(by_number, number, 0, {});
    const bool may_be_gone = records == 0 || agreed.book->purges != epoch;
    ensure(code >= 0 || may_be_gone, "a number that has gone");
    if (code >= 0) check_read(code, epoch, false);
}

int32_t party::pick(int32_t route, int32_t number, size_t key, const std::string& value)
{
    if (route == by_number)
        return answer([&] { return tsgetd32(d, number, room.get(), &deleted); });
    if (route == at_cursor) return place(key);
    const key_place& at = keys[key];
    return answer(
        [&] { return tsgeti32(d, at.index, at.key, value.data(), room.get(), &deleted); });
}

void party::change_one(int32_t route, int32_t verb, int32_t number)
{
    const size_t key = random() % key_count;
    const key_place& at = keys[key];
    const std::string value = value_of(at, look_alike());
    int32_t code = pick(route, number, key, value);
    const bool strict = locking || route == by_number;
    if (code < 0) {
        if (is_one_of(code, nothing_there) || (strict && code == TS_BAD_RECORD_NUMBER)) return;
        must(code, "a record to change", strict ? nothing_there : told_beside_others);
        return;
    }
    ensure(is_whole(seen()), "a record to change that isn't whole");
    const shared_record before = seen();
    shared_record after = before;
    rewrite(after, random);
    const bool was_deleted = deleted == 1;
    void* const scratch = room.get();
    const auto call = [&] {
        switch (route * verb_count + verb) {
        case 0: return tsdeld32(d, number);
        case 1: return tsundeld32(d, number);
        case 2: return tsupd32(d, number, &after, after.length, &deleted, scratch, 0);
        case 3: return tsdeli32(d, at.index, at.key, value.data());
        case 4: return tsundeli32(d, at.index, at.key, value.data());
        case 5:
            return tsupi32(d, at.index, at.key, value.data(), &after, after.length, &deleted,
                           scratch, 0);
        case 6: return tsdelci32(d, at.index, at.key);
        case 7: return tsudelci32(d, at.index, at.key);
        default: return tsupci32(d, at.index, at.key, &after, after.length, &deleted, scratch, 0);
        }
    };
    code = answer(call);
    if (!locking) {
        told.changed += code == TS_CURSOR_FILE_CHANGED;
        if (is_one_of(code, {done_already[route][verb], TS_UPDATE_KEY_CHANGED})) return;
        if (!strict && code == TS_UPDATE_LENGTH_DIFFERS) return; // of another record that was found
        if (strict || !is_one_of(code, nothing_there))
            must(code, "a change beside others",
                 strict ? std::initializer_list<int32_t>{} : told_beside_others);
        return;
    }
    const bool refusal = was_deleted != (verb == restore_it);
    if (code != (refusal ? done_already[route][verb] : int32_t{TS_OK}))
        must(std::min(code, -1), "a change under locks");
    ensure(agreed.book->of(before) == (was_deleted ? -1 : 1) * before.version,
           "a change of a record that is out of date");
    if (refusal) return;
    const int32_t version = verb == rewrite_it ? after.version : before.version;
    agreed.book->of(before) = verb == remove_it ? -version : version;
}

// A record lock is enough for what changes no key, also beside those that lock the whole file; but
// an undelete with reuse on looks for another place when it is done, and can be refused there.
void party::change()
{
    const auto route = static_cast<int32_t>(random() % route_count);
    const auto chance = random() % 10;
    const int32_t verb = chance < 6 ? remove_it : chance < 7 ? restore_it : rewrite_it;
    const int32_t number = route == by_number ? some_number() : 0;
    const auto deed = [&] { change_one(route, verb, number); };
    if (agreed.fixed && route == by_number && !(reuse && verb == restore_it) && random() % 2 == 0)
        with_record_locked(number, deed);
    else
        as_one_step(deed);
}

void party::purge()
{
    as_one_step([&] {
        int32_t removed = 0;
        ++agreed.book->purges;
        const int32_t code = tspurge32(d, room.get(), &removed);
        ++agreed.book->purges;
        must(code, "purge", {TS_PURGE_NOTHING_DELETED});
        ensure(deleted_records == (code == TS_OK ? removed : 0), "a purge of other records");
        told.purges += code == TS_OK;
        told.purged += removed;
    });
}

// Under the locks a walk meets every record once, in order. A bare one can meet records that others
// have put in the place of those that its copy of a leaf names.
void party::walk_all()
{
    const size_t key = random() % key_count;
    const bool forward = random() % 2 == 0;
    const auto next = [&] { return by(forward ? tsgetni32 : tsgetpi32, key); };
    as_one_step([&] {
        int32_t met = 0;
        int32_t last = forward ? INT32_MIN : INT32_MAX;
        const int64_t epoch = agreed.book->purges;
        int32_t code = by(forward ? tsgetfi32 : tsgetli32, key);
        for (; code == TS_OK && met < (locking ? records + 1 : 50); ++met) {
            check_read(code, epoch, locking);
            const int32_t bucket = seen().bucket;
            ensure(!locking || key < 2 || (forward ? bucket >= last : bucket <= last),
                   "entries out of order");
            last = bucket;
            code = next();
            for (; code == TS_CURSOR_FILE_CHANGED; code = next()) ++told.changed;
        }
        if (!locking) return;
        ensure(met == records, "a walk that misses some");
        must(code, "walk", {TS_NEXT_ENTRY_AT_END, TS_PREVIOUS_ENTRY_AT_START, TS_WALK_NO_RECORDS});
    });
}

void party::one_operation()
{
    const auto chance = random() % 4000;
    ++told.operations;
    if (chance < 1) return locking ? purge() : walk_all();
    if (chance < 5) return walk_all();
    if (chance < 900 && records < 1000) return add(random() % 16 == 0 ? 'n' : 'y');
    if (chance < 2000) return change();
    if (chance < 2200) return read_by_number();
    if (chance < 3000 && locking) return as_one_step([&] { read(true); });
    read(false);
}

void party::work(int64_t operations)
{
    for (; operations > 0; --operations) one_operation();
}

} // namespace tarsil::support
