// Files served from a shared mapping; see platform/mapping.h for the picture and the promises.
//
// Every access lies below `length` or, growing, below `allocated`, so a bus error means that
// somebody has cut the file or that the medium has failed. The copy then counts for nothing: the
// mapping goes, and the same transfer is done by system calls, which tell what is wrong. One cut
// makes no bus error: in the page that the new end lies in, where zeros appear from the end to the
// next page, and where stores would be lost. So wherever the bytes that are read, or about to be
// overwritten, run as zeros up to the end of their page, the size of the file is asked for. That is
// seldom: in files of ours something else than a zero follows soon. Only what is appended into the
// very page that somebody has cut is lost with what he cut away.
//
// A kill can cut a copy anywhere. Of what is appended the first eight bytes are stored first, with
// one instruction: the mark and the length of a record. So what a kill leaves behind the end is a
// record whose last part reads as zeros, or nothing: never a part without its length, which the
// rebuild of a header would take for damage. What is there already is overwritten from the end
// that the caller names: a node whose entries move up, from the back, or down, from the front,
// holds one of them twice then, and loses none. Beside others a record that is appended gets its
// front last, since nobody needs it before the header counts it: what a kill leaves of it has no
// length, and isn't taken for a record.
#include "platform/mapping.h"

#include "platform/bus_error.h"
#include "platform/posix.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace tarsil::platform {

namespace {

#if defined(TARSIL32_MAPPING)
constexpr bool mapping_is_wanted = sizeof(void*) == 8; // where there is room for the views
#else
constexpr bool mapping_is_wanted = false;
#endif

constexpr size_t first_bytes = 8;
constexpr size_t line_bytes = 64; // of the processor's caches
constexpr size_t fetched_bytes = 2048;
constexpr size_t lines_behind = 2;        // of a few bytes that are read: what they tell of follows
constexpr size_t read_ahead_bytes = 1024; // where one reads on, the next page too is there in time
constexpr size_t chunk_bytes = 16;        // stored by one instruction
constexpr size_t zero_run_bytes = 256;    // as many zeros in a row are worth a system call

// Written to the file, never to. Static, so that it takes no room in the library's file.
uint8_t growth_zeros[growth_step_bytes];

enum class soundness : uint8_t { nothing, reads, reads_and_stores };

// Local file systems where mappings and transfers share their pages. Stores are sound where they
// are written in place: copying on write needs room that nobody has set aside. An overlay doesn't
// tell what it lies on. What isn't here (network file systems, FUSE) has other caches, or nobody
// has tried.
soundness of_file_system(int descriptor)
{
    struct statfs facts = {};
    if (fstatfs(descriptor, &facts) != 0) return soundness::nothing;
    switch (static_cast<uint32_t>(facts.f_type)) {
    case EXT4_SUPER_MAGIC: // ext2 and ext3 as well
    case XFS_SUPER_MAGIC:
    case TMPFS_MAGIC: return soundness::reads_and_stores;
    case BTRFS_SUPER_MAGIC:
    case OVERLAYFS_SUPER_MAGIC: return soundness::reads;
    default: return soundness::nothing;
    }
}

int64_t size_in_file_system(const open_file& entry)
{
    struct stat facts = {};
    return fstat(entry.descriptor, &facts) == 0 ? facts.st_size : -1;
}

[[gnu::noinline]] bool is_zero_run(const uint8_t* place, size_t bytes)
{
    const uint8_t* const end = place + std::min(bytes, zero_run_bytes);
    return std::find_if(place, end, [](uint8_t byte) { return byte != 0; }) == end;
}

// Whether the bytes from `place` on are zeros to the end of its page; after many of them we don't
// look further, and the first eight tell nearly always. The page must be in a guarded copy.
inline bool zeros_follow(const uint8_t* place)
{
    const uintptr_t left = page_bytes - (reinterpret_cast<uintptr_t>(place) & (page_bytes - 1));
    uint64_t word = 0;
    if (left >= sizeof word) std::memcpy(&word, place, sizeof word);
    return word == 0 && is_zero_run(place, left);
}

// Most reads are of eight bytes, and what lies behind them is read next.
inline void copy_and_fetch(const uint8_t* from, uint8_t* buffer, size_t bytes)
{
    __builtin_prefetch(from + read_ahead_bytes);
    if (bytes != first_bytes) {
        std::memcpy(buffer, from, bytes);
        return;
    }
    for (size_t i = 1; i <= lines_behind; ++i) __builtin_prefetch(from + i * line_bytes);
    std::memcpy(buffer, from, first_bytes);
}

// False if a page was missing; `may_be_cut` tells whether what was read may be what a cut has left.
[[gnu::always_inline]] inline bool copy_out(const uint8_t* from, uint8_t* buffer, size_t bytes,
                                            bool& may_be_cut)
{
    begin_guarded_copy(from, bytes);
    copy_and_fetch(from, buffer, bytes);
    may_be_cut = buffer[bytes - 1] == 0 && zeros_follow(from + bytes - 1);
    return end_guarded_copy();
}

// Keeps the compiler from moving stores from one side to the other: a kill counts them in order.
void keep_order() { std::atomic_signal_fence(std::memory_order_seq_cst); }

// Stored by one instruction each, in every build: a kill comes before it or behind it.
struct __attribute__((packed, may_alias)) word {
    uint64_t bytes;
};
struct __attribute__((packed, may_alias)) chunk {
    uint8_t bytes __attribute__((vector_size(chunk_bytes)));
};
#if defined(__x86_64__) || defined(__aarch64__)
constexpr bool has_chunk_stores = true;
#else
constexpr bool has_chunk_stores = false;
#endif

void store_word(uint8_t* to, const uint8_t* from)
{
    reinterpret_cast<word*>(to)->bytes = reinterpret_cast<const word*>(from)->bytes;
}

void store_chunk(uint8_t* to, const uint8_t* from)
{
    reinterpret_cast<chunk*>(to)->bytes = reinterpret_cast<const chunk*>(from)->bytes;
    keep_order();
}

void copy_appended(uint8_t* to, const uint8_t* buffer, size_t bytes)
{
    if (bytes < first_bytes) {
        std::memcpy(to, buffer, bytes);
        return;
    }
    store_word(to, buffer);
    keep_order();
    std::memcpy(to + first_bytes, buffer + first_bytes, bytes - first_bytes);
}

void copy_front_last(uint8_t* to, const uint8_t* buffer, size_t bytes)
{
    if (bytes < first_bytes) {
        std::memcpy(to, buffer, bytes);
        return;
    }
    std::memcpy(to + first_bytes, buffer + first_bytes, bytes - first_bytes);
    keep_order();
    store_word(to, buffer);
}

void copy_from_back(uint8_t* to, const uint8_t* buffer, size_t bytes)
{
    for (; bytes >= chunk_bytes; bytes -= chunk_bytes)
        store_chunk(to + bytes - chunk_bytes, buffer + bytes - chunk_bytes);
    std::memcpy(to, buffer, bytes);
}

void copy_from_front(uint8_t* to, const uint8_t* buffer, size_t bytes)
{
    for (; bytes >= chunk_bytes; bytes -= chunk_bytes) {
        store_chunk(to, buffer);
        to += chunk_bytes;
        buffer += chunk_bytes;
    }
    std::memcpy(to, buffer, bytes);
}

// As the place does of what is appended, behind the end or into a tail that a purge or a kill has
// left.
bool begins_with_zeros(const uint8_t* place, size_t bytes)
{
    uint64_t first = 0;
    std::memcpy(&first, place, std::min(bytes, first_bytes));
    return first == 0;
}

bool copy_in(const open_file& entry, const uint8_t* buffer, size_t bytes, care wanted)
{
    uint8_t* const to = entry.view.bytes + entry.position;
    begin_guarded_copy(to, bytes);
    if (wanted == care::not_counted_yet && !entry.is_alone)
        copy_front_last(to, buffer, bytes);
    else if (wanted != care::first_16_at_once && begins_with_zeros(to, bytes))
        copy_appended(to, buffer, bytes);
    else if (wanted == care::from_back)
        copy_from_back(to, buffer, bytes);
    else
        copy_from_front(to, buffer, bytes);
    return end_guarded_copy();
}

// The same for bytes that are about to be overwritten, of which the last one is looked at.
bool look_at_last(const uint8_t* last, bool& may_be_cut)
{
    begin_guarded_copy(last, 1);
    may_be_cut = zeros_follow(last);
    return end_guarded_copy();
}

// Lengthens the file to `target`. What fails may have lengthened it all the same.
bool allocate_up_to(open_file& entry, int64_t target)
{
    file_view& view = entry.view;
    if (posix_fallocate(entry.descriptor, view.allocated, target - view.allocated) != 0) {
        const int64_t size = size_in_file_system(entry);
        if (size > view.allocated && size <= target) view.allocated = static_cast<int32_t>(size);
        return false;
    }
    view.allocated = static_cast<int32_t>(target);
    return true;
}

// Allocates up to the next whole step and writes zeros there, which costs less than to have each
// page found empty by the first store into it.
void grow_ahead(open_file& entry, int64_t end)
{
    const int64_t whole = (end + growth_step_bytes - 1) / growth_step_bytes * growth_step_bytes;
    const int64_t target = std::min(whole, read_size_limit());
    const int64_t from = entry.view.allocated;
    if (target < end || !allocate_up_to(entry, target)) return;
    const auto bytes = static_cast<size_t>(std::min<int64_t>(target - from, growth_step_bytes));
    static_cast<void>(pwrite(entry.descriptor, growth_zeros, bytes, from));
}

// Whether a write may be stored up to `end`. Small files are appended to by system calls, which
// allocate exactly what is written, within a page; across the edge of one a kill would cut the
// call, so there the room is made first. Wide gaps and large transfers go by system calls, too.
bool is_allocated(open_file& entry, int64_t end)
{
    const file_view& view = entry.view;
    if (end <= view.allocated) return true;
    if (end - view.allocated >= growth_step_bytes) return false;
    if (end > exact_length_bytes)
        grow_ahead(entry, end);
    else if (crosses_page(entry.position, end))
        allocate_up_to(entry, end);
    return end <= view.allocated;
}

// The same beside others, who may have made the file longer. It never gets shorter there.
bool is_allocated_for_all(open_file& entry, int64_t end)
{
    file_view& view = entry.view;
    if (end <= view.length) return true;
    if (end <= exact_length_bytes || !has_known_size(entry)) return false;
    if (end <= view.length) return true;
    const int64_t target = (end + shared_step_bytes - 1) / shared_step_bytes * shared_step_bytes;
    if (end - view.length >= shared_step_bytes || target > read_size_limit()) return false;
    const auto bytes = static_cast<size_t>(target - view.length);
    if (pwrite(entry.descriptor, growth_zeros, bytes, view.length) < 0) return false;
    return has_known_size(entry) && end <= view.length;
}

// Whether a write that ends there goes into the mapping. Where others have the file open, too, what
// lies within one page doesn't: no kill cuts a system call there. Across the edge of a page it is
// cut with the front written, and the entry of a node that was to move over the edge is lost. What
// changes within one chunk, as headers do, is stored by one instruction, which no kill cuts either.
bool is_stored(open_file& entry, int64_t end, care wanted)
{
    if (!entry.view.takes_stores) return false;
    if (entry.is_alone) return is_allocated(entry, end);
    if (wanted == care::not_counted_yet) return is_allocated_for_all(entry, end);
    const bool is_at_once = has_chunk_stores && wanted == care::first_16_at_once;
    const bool is_cut_anyway = crosses_page(entry.position, end);
    return end <= entry.view.length && (is_cut_anyway || is_at_once);
}

// Nothing is known any more of what the mapping holds; pages that took the place of missing ones go
// with it.
[[gnu::cold]] bool give_up(open_file& entry)
{
    unmap_file(entry);
    return false;
}

} // namespace

void map_file(open_file& entry)
{
    if (!mapping_is_wanted) return;
    const soundness sound = of_file_system(entry.descriptor);
    if (sound == soundness::nothing) return;
    const int64_t size = size_in_file_system(entry);
    if (size < 0 || size > max_file_bytes || !stand_guard()) return;

    const bool takes_stores = sound == soundness::reads_and_stores;
    const int protection = takes_stores ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const place = mmap(nullptr, view_bytes, protection, MAP_SHARED, entry.descriptor, 0);
    if (place == MAP_FAILED) {
        leave_guard();
        return;
    }
    madvise(place, view_bytes, MADV_DONTFORK);
    const int32_t length = static_cast<int32_t>(size);
    entry.view = {static_cast<uint8_t*>(place), length, length, takes_stores, false};
}

namespace {

// Stores don't change the time of a file as transfers do; backups and builds go by it. Who isn't
// its owner may set both times or none.
void tell_time_of_change(const open_file& entry)
{
    const timespec times[2] = {{0, UTIME_OMIT}, {0, UTIME_NOW}};
    if (futimens(entry.descriptor, times) != 0)
        static_cast<void>(!futimens(entry.descriptor, nullptr));
}

} // namespace

bool unmap_file(open_file& entry)
{
    const file_view view = entry.view;
    int answer = 0;
    if (view.length < view.allocated && size_in_file_system(entry) == view.allocated) {
        do {
            answer = ftruncate(entry.descriptor, view.length);
        } while (answer != 0 && errno == EINTR);
    }
    const bool is_exact = answer == 0 || refuse(errno);
    if (view.was_stored_to) tell_time_of_change(entry);
    munmap(view.bytes, view_bytes);
    entry.view = {};
    leave_guard();
    return is_exact;
}

void forget_view(open_file& entry)
{
    entry.view = {};
    leave_guard();
}

namespace {

// What reaches beyond the length as we know it.
[[gnu::noinline]] bool read_beyond(open_file& entry, uint8_t* buffer, uint32_t bytes,
                                   uint32_t& moved)
{
    if (!has_known_size(entry)) return false;
    const int64_t there = std::min<int64_t>(int64_t{entry.view.length} - entry.position, bytes);
    if (there <= 0) return true;

    const size_t count = static_cast<size_t>(there);
    bool may_be_cut = false;
    if (!copy_out(entry.view.bytes + entry.position, buffer, count, may_be_cut))
        return give_up(entry);
    if (may_be_cut && !has_known_size(entry)) return false;
    entry.position += static_cast<int32_t>(count);
    moved = static_cast<uint32_t>(count);
    return true;
}

} // namespace

bool read_view(open_file& entry, void* buffer, uint32_t bytes, uint32_t& moved)
{
    uint8_t* const target = static_cast<uint8_t*>(buffer);
    const int64_t end = int64_t{entry.position} + bytes;
    if (bytes == 0) return true;
    if (end > entry.view.length) [[unlikely]]
        return read_beyond(entry, target, bytes, moved);

    bool may_be_cut = false;
    if (!copy_out(entry.view.bytes + entry.position, target, bytes, may_be_cut)) [[unlikely]]
        return give_up(entry);
    if (may_be_cut && !has_known_size(entry)) [[unlikely]]
        return false;
    entry.position = static_cast<int32_t>(end);
    moved = bytes;
    return true;
}

bool write_view(open_file& entry, const void* buffer, uint32_t bytes, uint32_t& moved, care wanted)
{
    const int64_t end = int64_t{entry.position} + bytes;
    if (bytes == 0) return true;
    if (!is_stored(entry, end, wanted)) return false;

    file_view& view = entry.view;
    const uint8_t* const place = view.bytes + entry.position;
    const bool overwrites = end <= view.length && wanted != care::not_counted_yet;
    bool may_be_cut = false;
    if (overwrites && !look_at_last(place + bytes - 1, may_be_cut)) return give_up(entry);
    if (may_be_cut && !has_known_size(entry)) return false;
    const uint8_t* const source = static_cast<const uint8_t*>(buffer);
    if (!copy_in(entry, source, bytes, wanted)) return give_up(entry);
    view.was_stored_to = true;
    entry.position = static_cast<int32_t>(end);
    view.length = std::max(view.length, entry.position);
    moved = bytes;
    return true;
}

namespace {

// Lets the memory bring the front of what is looked at while its end is being waited for.
void fetch_ahead(const uint8_t* place, size_t bytes)
{
    for (size_t i = 0; i < std::min(bytes, fetched_bytes); i += line_bytes)
        __builtin_prefetch(place + i);
}

} // namespace

const uint8_t* begin_look(open_file& entry, uint32_t bytes)
{
    if (bytes == 0 || int64_t{entry.position} + bytes > entry.view.length) return nullptr;

    const uint8_t* const place = entry.view.bytes + entry.position;
    fetch_ahead(place, bytes);
    begin_guarded_copy(place, bytes);
    if (place[bytes - 1] != 0 || !zeros_follow(place + bytes - 1)) [[likely]]
        return place;
    if (!end_look(entry) || !has_known_size(entry)) return nullptr;
    begin_guarded_copy(place, bytes);
    return place;
}

bool end_look(open_file& entry) { return end_guarded_copy() || give_up(entry); }

void note_written(open_file& entry)
{
    file_view& view = entry.view;
    view.length = std::max(view.length, entry.position);
    view.allocated = std::max(view.allocated, entry.position);
}

bool has_known_size(open_file& entry)
{
    file_view& view = entry.view;
    const int64_t size = size_in_file_system(entry);
    if (entry.is_alone && view.takes_stores) return size == view.allocated || give_up(entry);

    if (size < view.length || size > max_file_bytes) return give_up(entry);
    view.length = static_cast<int32_t>(size);
    view.allocated = view.length;
    return true;
}

} // namespace tarsil::platform
