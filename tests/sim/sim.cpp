// The simulation. Each function of the platform goes through meet(), which counts and logs the
// call, lets another party act before it, and tells which failure is planned for it; what is left
// is plain bookkeeping.
#include "tests/sim/sim.h"

#include "tests/support/file_parts.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <set>

namespace tarsil {
namespace {

using namespace platform;
using sim::call;
using sim::failure;

// A write that ends behind this finds the simulated disk full, so that no test takes gigabytes of
// memory.
constexpr int64_t disk_bytes = int64_t{256} << 20;

struct held_bytes {
    file_handle owner;
    int64_t offset;
    int64_t end;
};

struct file_body {
    std::string content;
    int opens_alone = 0;
    int opens_shared = 0;
    std::vector<held_bytes> held;
};

struct open_entry {
    std::shared_ptr<file_body> file; // none once it is closed
    std::string name;
    bool may_write = false;
    bool flush_failed = false;
    int32_t position = 0;
    // The count of the file that this open is part of; none for a mere question.
    int* opens_alike = nullptr;
};

struct simulation {
    std::map<std::string, std::shared_ptr<file_body>> files;
    std::vector<open_entry> opens;
    std::set<void*> blocks;
    uint64_t calls[sim::call_kinds] = {};
    std::optional<sim::fault> planned;
    uint64_t faults_met = 0;
    uint64_t stray_closes = 0;
    uint64_t party_waits = 0; // calls up to the one before which the other party acts; or 0
    sim::kinds party_where = 0;
    std::function<void()> party_deed;
    bool party_acts = false;
    bool looks_are_offered = true;
    bool recording = false;
    std::vector<sim::logged> log;
    uint32_t last_error = 0;
};

simulation world;

bool is_among(call kind, sim::kinds kinds) { return (kinds & sim::only(kind)) != 0; }

void let_other_party_act(call kind)
{
    if (world.party_waits == 0 || !is_among(kind, world.party_where)) return;
    if (--world.party_waits > 0) return;
    world.party_acts = true;
    world.party_deed();
    world.party_acts = false;
}

std::optional<sim::fault> take_planned(call kind)
{
    if (!world.planned || !is_among(kind, world.planned->where)) return std::nullopt;
    if (world.planned->how != failure::error && !is_among(kind, sim::transfers))
        return std::nullopt;
    if (--world.planned->at > 0) return std::nullopt;

    const sim::fault met = *world.planned;
    world.planned->at = 1;
    if (--world.planned->times == 0) world.planned.reset();
    ++world.faults_met;
    return met;
}

bool fails_next(call kind)
{
    return world.planned && world.planned->at == 1 && is_among(kind, world.planned->where);
}

// Every call begins here; the answer is the failure that is planned for it.
std::optional<sim::fault> begin(call kind)
{
    if (world.party_acts) return std::nullopt;
    let_other_party_act(kind);
    ++world.calls[static_cast<size_t>(kind)];
    return take_planned(kind);
}

// And ends here, with its own answer.
bool end(const sim::logged& call)
{
    if (!call.done) world.last_error = static_cast<uint32_t>(call.kind) + 1;
    if (world.recording && !world.party_acts) world.log.push_back(call);
    return call.done;
}

bool end(call kind, const open_entry* entry, int64_t offset, int64_t length, bool done,
         origin from = origin::begin)
{
    return end({kind, entry == nullptr ? "" : entry->name, offset, length, from, done, {}});
}

open_entry* find_open(file_handle file)
{
    if (file < 0 || static_cast<size_t>(file) >= world.opens.size()) return nullptr;
    open_entry& entry = world.opens[static_cast<size_t>(file)];
    return entry.file ? &entry : nullptr;
}

std::shared_ptr<file_body> find_file(const std::string& name)
{
    const auto found = world.files.find(name);
    return found == world.files.end() ? nullptr : found->second;
}

bool may_share(const file_body& file, share wanted)
{
    return file.opens_alone == 0 && (wanted == share::read_write || file.opens_shared == 0);
}

file_handle add_open(const std::shared_ptr<file_body>& file, const char* name, access wanted_access,
                     share wanted_share)
{
    open_entry entry;
    entry.file = file;
    entry.name = name;
    entry.may_write = wanted_access == access::read_write;
    if (wanted_share == share::read_write)
        entry.opens_alike = &file->opens_shared;
    else if (entry.may_write)
        entry.opens_alike = &file->opens_alone;
    if (entry.opens_alike != nullptr) ++*entry.opens_alike;
    world.opens.push_back(entry);
    return static_cast<file_handle>(world.opens.size() - 1);
}

file_handle open_or_create(const char* name, access wanted_access, share wanted_share,
                           disposition how)
{
    if (name == nullptr || name[0] == '\0') return no_file;
    std::shared_ptr<file_body> file = find_file(name);
    const bool writing = wanted_access == access::read_write;
    if (how == disposition::create_new) {
        if (file || !writing) return no_file;
        file = std::make_shared<file_body>();
        world.files[name] = file;
    }
    if (!file || !may_share(*file, wanted_share)) return no_file;
    return add_open(file, name, wanted_access, wanted_share);
}

void release_all(open_entry& entry, file_handle file)
{
    std::erase_if(entry.file->held, [file](const held_bytes& held) { return held.owner == file; });
    if (entry.opens_alike != nullptr) --*entry.opens_alike;
    entry = {};
}

int64_t size_of(const open_entry& entry)
{
    return static_cast<int64_t>(entry.file->content.size());
}

bool is_error(const std::optional<sim::fault>& met) { return met && met->how == failure::error; }

// How many of the bytes asked for a transfer moves, the file allowing.
uint32_t granted(const std::optional<sim::fault>& met, uint32_t bytes)
{
    if (!met || bytes == 0) return bytes;
    return is_error(met) ? 0 : bytes - 1;
}

} // namespace

namespace platform {

file_handle CreateFileA(const char* name, access wanted_access, share wanted_share, disposition how)
{
    const call kind = how == disposition::create_new ? call::create : call::open;
    const bool fails = begin(kind).has_value();
    const file_handle file = fails ? no_file
                                   : open_or_create(name, wanted_access, wanted_share, how);
    end({kind, name == nullptr ? "" : name, 0, 0, origin::begin, file != no_file, {}});
    return file;
}

bool CloseHandle(file_handle file)
{
    const bool fails = begin(call::close).has_value();
    open_entry* const entry = find_open(file);
    if (entry == nullptr && file != no_file) ++world.stray_closes;
    const bool done = end(call::close, entry, 0, 0, entry != nullptr && !fails);
    if (entry != nullptr) release_all(*entry, file);
    return done;
}

bool DeleteFileA(const char* name)
{
    const bool fails = begin(call::remove).has_value();
    const std::shared_ptr<file_body> file = name == nullptr ? nullptr : find_file(name);
    const bool done = !fails && file && may_share(*file, share::none);
    if (done) world.files.erase(name);
    return end({call::remove, name == nullptr ? "" : name, 0, 0, origin::begin, done, {}});
}

bool ReadFile(file_handle file, void* buffer, uint32_t bytes, uint32_t& moved)
{
    const std::optional<sim::fault> met = begin(call::read);
    moved = 0;
    open_entry* const entry = find_open(file);
    const int64_t offset = entry == nullptr ? -1 : entry->position;
    if (entry == nullptr || offset + bytes > max_file_bytes)
        return end(call::read, entry, offset, bytes, false);

    const int64_t left = std::max<int64_t>(size_of(*entry) - offset, 0);
    moved = static_cast<uint32_t>(std::min<int64_t>(granted(met, bytes), left));
    if (moved > 0) std::memcpy(buffer, entry->file->content.data() + offset, moved);
    entry->position += static_cast<int32_t>(moved);
    return end(call::read, entry, offset, bytes, !is_error(met));
}

bool WriteFile(file_handle file, const void* buffer, uint32_t bytes, uint32_t& moved, care)
{
    const std::optional<sim::fault> met = begin(call::write);
    moved = 0;
    open_entry* const entry = find_open(file);
    const int64_t offset = entry == nullptr ? -1 : entry->position;
    const bool possible = entry != nullptr && entry->may_write && offset + bytes <= disk_bytes;
    if (!possible) return end(call::write, entry, offset, bytes, false);

    moved = granted(met, bytes);
    if (moved > 0)
        support::overwrite(entry->file->content, static_cast<size_t>(offset),
                           {static_cast<const char*>(buffer), moved});
    entry->position += static_cast<int32_t>(moved);
    return end({call::write, entry->name, offset, bytes, origin::begin, !is_error(met),
                world.recording ? std::string(static_cast<const char*>(buffer), moved) : ""});
}

const uint8_t* LookAtFile(file_handle file, uint32_t bytes)
{
    const auto entry_that_reaches = [&]() -> const open_entry* {
        const open_entry* const entry = find_open(file);
        if (entry == nullptr || bytes == 0) return nullptr;
        return int64_t{entry->position} + bytes <= size_of(*entry) ? entry : nullptr;
    };
    if (!world.looks_are_offered || fails_next(call::read) || entry_that_reaches() == nullptr)
        return nullptr;
    begin(call::read); // when somebody may cut it
    const open_entry* const entry = entry_that_reaches();
    if (entry == nullptr) return nullptr;
    end(call::read, entry, entry->position, bytes, true);
    return reinterpret_cast<const uint8_t*>(entry->file->content.data()) + entry->position;
}

bool EndLook(file_handle) { return true; }

uint32_t SetFilePointer(file_handle file, int32_t distance, origin from)
{
    const bool fails = begin(call::position).has_value();
    open_entry* const entry = find_open(file);
    int64_t place = entry != nullptr && from == origin::current ? entry->position : 0;
    if (entry != nullptr && from == origin::end) place = size_of(*entry);
    place += distance;
    const bool possible = entry != nullptr && place >= 0 && place <= max_file_bytes;
    if (!end(call::position, entry, place, 0, possible && !fails, from)) return invalid_position;
    entry->position = static_cast<int32_t>(place);
    return static_cast<uint32_t>(place);
}

bool LockFile(file_handle file, int32_t offset, int32_t length)
{
    const bool fails = begin(call::lock).has_value();
    open_entry* const entry = find_open(file);
    const int64_t stop = int64_t{offset} + length;
    bool done = !fails && entry != nullptr && entry->may_write && offset >= 0 && length > 0;
    if (done) {
        std::vector<held_bytes>& held = entry->file->held;
        done = std::none_of(held.begin(), held.end(), [offset, stop](const held_bytes& other) {
            return other.offset < stop && offset < other.end;
        });
        if (done) held.push_back({file, offset, stop});
    }
    return end(call::lock, entry, offset, length, done);
}

bool UnlockFile(file_handle file, int32_t offset, int32_t length)
{
    const bool fails = begin(call::unlock).has_value();
    open_entry* const entry = find_open(file);
    const int64_t stop = int64_t{offset} + length;
    const bool done = !fails && entry != nullptr &&
                      std::erase_if(entry->file->held, [&](const held_bytes& held) {
                          return held.owner == file && held.offset == offset && held.end == stop;
                      }) > 0;
    return end(call::unlock, entry, offset, length, done);
}

bool FlushFileBuffers(file_handle file)
{
    const bool fails = begin(call::flush).has_value();
    open_entry* const entry = find_open(file);
    if (entry == nullptr) return end(call::flush, entry, 0, 0, false);
    if (fails) entry->flush_failed = true;
    return end(call::flush, entry, 0, 0, !entry->flush_failed);
}

bool ZeroFileRange(file_handle file, int32_t offset, int32_t length)
{
    const bool fails = begin(call::zero).has_value();
    open_entry* const entry = find_open(file);
    const bool possible = !fails && entry != nullptr && entry->may_write && offset >= 0 &&
                          length >= 0 && int64_t{offset} + length <= size_of(*entry);
    if (possible)
        entry->file->content.replace(static_cast<size_t>(offset), static_cast<size_t>(length),
                                     static_cast<size_t>(length), '\0');
    return end(call::zero, entry, offset, length, possible);
}

uint32_t GetLastError() { return world.last_error; }

void* LocalAlloc(size_t bytes)
{
    const bool fails = begin(call::allocate).has_value();
    void* const block = fails ? nullptr : std::calloc(1, bytes);
    if (block != nullptr) world.blocks.insert(block);
    end(call::allocate, nullptr, 0, static_cast<int64_t>(bytes), block != nullptr);
    return block;
}

void LocalFree(void* block)
{
    world.blocks.erase(block);
    std::free(block);
}

} // namespace platform

namespace sim {

void reset()
{
    end_process();
    world = {};
}

void plan(const fault& planned) { world.planned = planned; }
void clear_fault() { world.planned.reset(); }
uint64_t faults_met() { return world.faults_met; }

void meanwhile(uint64_t at, kinds where, std::function<void()> deed)
{
    world.party_waits = at;
    world.party_where = where;
    world.party_deed = std::move(deed);
}

uint64_t calls()
{
    return std::accumulate(std::begin(world.calls), std::end(world.calls), uint64_t{0});
}

uint64_t calls(call kind) { return world.calls[static_cast<size_t>(kind)]; }
void count_afresh() { std::fill(std::begin(world.calls), std::end(world.calls), 0); }

size_t open_handles() { return open_files().size(); }
size_t held_ranges() { return ranges().size(); }
size_t live_blocks() { return world.blocks.size(); }

std::vector<std::string> open_files()
{
    std::vector<std::string> names;
    for (const open_entry& entry : world.opens) {
        if (entry.file != nullptr) names.push_back(entry.name);
    }
    return names;
}

uint64_t stray_closes() { return world.stray_closes; }

std::vector<range> ranges()
{
    std::vector<range> all;
    for (const auto& [name, file] : world.files) {
        for (const held_bytes& held : file->held)
            all.push_back({name, held.offset, held.end - held.offset});
    }
    return all;
}

std::map<std::string, std::string> files()
{
    std::map<std::string, std::string> all;
    for (const auto& [name, file] : world.files) all[name] = file->content;
    return all;
}

bool exists(const std::string& name) { return find_file(name) != nullptr; }

std::string bytes(const std::string& name)
{
    const std::shared_ptr<file_body> file = find_file(name);
    return file ? file->content : std::string();
}

void set_bytes(const std::string& name, const std::string& content)
{
    std::shared_ptr<file_body>& file = world.files[name];
    if (!file) file = std::make_shared<file_body>();
    file->content = content;
}

void offer_looks(bool offered) { world.looks_are_offered = offered; }

void start_recording()
{
    world.recording = true;
    world.log.clear();
}

const std::vector<logged>& log() { return world.log; }

void end_process()
{
    for (size_t file = 0; file < world.opens.size(); ++file) {
        if (world.opens[file].file) release_all(world.opens[file], static_cast<file_handle>(file));
    }
    for (void* const block : world.blocks) std::free(block);
    world.blocks.clear();
}

} // namespace sim
} // namespace tarsil
