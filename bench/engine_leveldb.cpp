// LevelDB without a flush per write: a write goes to the log file with one system call, from which
// the next open recovers it. One process at a time.
//
// Keys carry a letter for their table. LevelDB writes blindly: where an operation has to tell
// whether the key is there, a Get comes first.
#include <memory>
#include <string>

#include <leveldb/cache.h>
#include <leveldb/db.h>
#include <leveldb/filter_policy.h>
#include <leveldb/write_batch.h>

#include "bench/engine.h"

namespace bench {
namespace {

std::unique_ptr<leveldb::DB> base;
std::unique_ptr<leveldb::Cache> cache;
std::unique_ptr<const leveldb::FilterPolicy> bloom;
std::unique_ptr<leveldb::Iterator> iterator;
std::string found;
leveldb::WriteOptions lazily;
uint32_t next_number;
layout kind;

enum table : char { records = 'r', names = 'n', groups = 'g', ids = 'i' };

struct table_key {
    char bytes[25];
    size_t length;

    table_key(table of, const void* key, size_t key_length) : bytes{of}, length(key_length + 1)
    {
        std::memcpy(bytes + 1, key, key_length);
    }
    operator leveldb::Slice() const { return {bytes, length}; }
};

table_key number_key(table of, uint32_t big_endian) { return {of, &big_endian, sizeof big_endian}; }

void well(const leveldb::Status& status, const char* step)
{
    if (!status.ok()) std::fprintf(stderr, "%s\n", status.ToString().c_str());
    must(status.ok(), step, 0);
}

void version(char* text, size_t room)
{
    std::snprintf(text, room, "%d.%d", leveldb::kMajorVersion, leveldb::kMinorVersion);
}

void open(const opening& how)
{
    kind = how.kind;
    cache.reset(leveldb::NewLRUCache(size_t{512} << 20));
    bloom.reset(leveldb::NewBloomFilterPolicy(10));
    leveldb::Options options;
    options.create_if_missing = true;
    options.write_buffer_size = size_t{64} << 20;
    options.max_file_size = size_t{64} << 20;
    options.block_cache = cache.get();
    options.filter_policy = bloom.get();
    options.compression = leveldb::kNoCompression;
    leveldb::DB* opened = nullptr;
    well(leveldb::DB::Open(options, "store.leveldb", &opened), "leveldb::DB::Open");
    base.reset(opened);
}

void close()
{
    iterator.reset();
    base.reset();
    cache.reset();
    bloom.reset();
}

bool has(const leveldb::Slice& key)
{
    const leveldb::Status status = base->Get({}, key, &found);
    if (status.IsNotFound()) return false;
    well(status, "leveldb::DB::Get");
    return true;
}

bool add(const record& added, int32_t length)
{
    const leveldb::Slice body(reinterpret_cast<const char*>(&added), static_cast<size_t>(length));
    if (kind == heap || kind == heap_vary) {
        well(base->Put(lazily, number_key(records, __builtin_bswap32(next_number++)), body), "Put");
        return true;
    }
    const table_key id = number_key(records, ordered_id(added.id));
    if (has(id)) return false;
    if (kind == by_id) {
        well(base->Put(lazily, id, body), "leveldb::DB::Put");
        return true;
    }
    const group_key group = ordered_group(added);
    const table_key by_name(names, added.name, sizeof added.name);
    const table_key by_group(groups, group.bytes, sizeof group.bytes);
    if (has(by_name) || has(by_group)) return false;
    leveldb::WriteBatch batch;
    batch.Put(id, body);
    batch.Put(by_name, leveldb::Slice(id.bytes, id.length));
    batch.Put(by_group, leveldb::Slice(id.bytes, id.length));
    well(base->Write(lazily, &batch), "leveldb::DB::Write");
    return true;
}

void deliver(const leveldb::Slice& body, record* out)
{
    std::memcpy(out, body.data(), body.size());
}

// Whether the iterator stands in the table, having been placed or moved on.
bool step_to(table in)
{
    if (iterator == nullptr) {
        iterator.reset(base->NewIterator({}));
        iterator->Seek(leveldb::Slice(reinterpret_cast<const char*>(&in), 1));
    } else {
        iterator->Next();
    }
    return iterator->Valid() && iterator->key()[0] == in;
}

int32_t scan(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        if (!step_to(records)) {
            iterator.reset();
            return i;
        }
        deliver(iterator->value(), &out[i]);
    }
    return count;
}

void build()
{
    leveldb::WriteBatch batch;
    int32_t gathered = 0;
    while (step_to(records)) {
        int32_t id = 0;
        std::memcpy(&id, iterator->value().data(), sizeof id);
        batch.Put(number_key(ids, ordered_id(id)), iterator->key());
        if (++gathered % 10000 != 0) continue;
        well(base->Write(lazily, &batch), "leveldb::DB::Write");
        batch.Clear();
    }
    well(base->Write(lazily, &batch), "leveldb::DB::Write");
    iterator.reset();
}

int32_t walk(record* out, int32_t count)
{
    for (int32_t i = 0; i < count; ++i) {
        if (!step_to(ids)) {
            iterator.reset();
            return i;
        }
        must(has(iterator->value()), "leveldb::DB::Get", 0);
        deliver(found, &out[i]);
    }
    return count;
}

bool look_up(int32_t id, record* out)
{
    if (!has(number_key(records, ordered_id(id)))) return false;
    deliver(found, out);
    return true;
}

bool find_prefix(const char* name, record* out)
{
    if (iterator == nullptr) iterator.reset(base->NewIterator({}));
    const table_key wanted(names, name, prefix_length);
    iterator->Seek(wanted);
    if (!iterator->Valid() || !iterator->key().starts_with(wanted)) return false;
    must(has(iterator->value()), "leveldb::DB::Get", 0);
    deliver(found, out);
    return true;
}

bool update(const record& changed)
{
    const table_key id = number_key(records, ordered_id(changed.id));
    if (!has(id)) return false;
    const leveldb::Slice body(reinterpret_cast<const char*>(&changed), fixed_length);
    well(base->Put(lazily, id, body), "leveldb::DB::Put");
    return true;
}

bool remove(int32_t id)
{
    const table_key key = number_key(records, ordered_id(id));
    if (!has(key)) return false;
    well(base->Delete(lazily, key), "leveldb::DB::Delete");
    return true;
}

} // namespace

extern const engine leveldb_engine = {
    "LevelDB",
    "WriteOptions::sync=false, write_buffer_size and max_file_size 64 MB, block cache "
    "512 MB, Bloom filter of 10 bits, no compression, a Get before every write that has to know",
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
    nullptr,
    nullptr};

} // namespace bench
