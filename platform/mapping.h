// Files served from a shared mapping instead of by system calls, where that is sound.
//
//     bytes                      length                allocated                   view_bytes
//     |  what the handle shows   |  zeros, grown ahead |  nothing yet: a bus error  |
//
// A store into a shared mapping is in the operating system's hands at once: it survives the death
// of the process as a pwrite does, and fsync and fdatasync bring it to the disk. Stores are for
// file systems that write in place. A file that one open has alone is lengthened by them, too. Up
// to exact_length_bytes it always has the length that the handle shows. Beyond, it grows ahead in
// steps of zeros that are allocated before anything is stored there, so that a full disk is a
// failed write and no fault in the mapping. Closing restores the length. A process that dies leaves
// less than one step of zeros behind the end; nothing here cuts them off later, since the zeros at
// the end of a record look the same. The header of a data file knows its end, its rebuild knows
// zeros, and what is added after the next open goes in their place.
//
// Where others have the file open too, stores are for what is there already and crosses the edge of
// a page, as nodes do, for what changes with its first 16 bytes, and for what nobody counts yet;
// other writes go by system calls, and both see the same pages. A range lock keeps others from what
// is being stored, in either way. Such a file, too, grows ahead, but by less, and for good: nobody
// knows there who is the last to close it. On other file systems the view serves reads alone. Where
// no mapping is sound or can be had, and once one has failed, all transfers go by system calls
// (platform/posix_transfer.cpp) and give the same answers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarsil::platform {

struct open_file;
enum class care : uint8_t;

// The whole range that positions reach is reserved at once, so the address never changes.
inline constexpr size_t view_bytes = size_t{1} << 31;

inline constexpr int32_t exact_length_bytes = 1 << 20;
inline constexpr int32_t growth_step_bytes = 1 << 18;
inline constexpr int32_t shared_step_bytes = 1 << 14; // beside others, where the zeros stay

struct file_view {
    uint8_t* bytes; // none for a file that isn't mapped; the rest means nothing then
    int32_t length; // of a file that others may lengthen: what we know of it
    int32_t allocated;
    bool takes_stores;
    bool was_stored_to; // since it was mapped
};

// Maps a file that was opened for reading and writing, or leaves it as it is.
void map_file(open_file& entry);

// Gives the file the length that its handle shows, and the mapping up. False if the length can't be
// restored; what was stored then shows in the time of the file, too. A file that somebody else has
// cut or lengthened keeps the length that he gave it.
bool unmap_file(open_file& entry);

// In a forked child, which has no mappings: forgets the parent's.
void forget_view(open_file& entry);

// ReadFile and WriteFile on a mapped file, once it is known that they end within all limits. False
// if they have moved nothing: the transfer then goes by system calls, and once the mapping has
// failed, so do all later ones.
bool read_view(open_file& entry, void* buffer, uint32_t bytes, uint32_t& moved);
bool write_view(open_file& entry, const void* buffer, uint32_t bytes, uint32_t& moved, care wanted);

// LookAtFile and EndLook on a mapped file.
const uint8_t* begin_look(open_file& entry, uint32_t bytes);
bool end_look(open_file& entry);

// After a write by system calls, which has brought the position to where it ended.
void note_written(open_file& entry);

// Asks for the size of the file. True if it is the one that we gave it, or, where others may
// lengthen the file, no smaller than we knew; `length` then is up to date. If not, the file is no
// longer mapped.
bool has_known_size(open_file& entry);

} // namespace tarsil::platform
