// The platform: the dozen operations that the logic needs of an operating system, and nothing else
// of it.
//
// The functions bear the names of the file interface they stand for and take only the arguments
// that the logic uses, so that a second implementation over that very interface stays a page long.
// This header is a link seam: the library links platform/posix_*.cpp, the unit tests may link an
// in-memory simulation instead, and one contract suite runs on both. Each comment below is the
// whole of what the logic relies on.
//
// A file_handle is a small number into a table of the implementation; every operation accepts any
// number and fails without harm on one that is not open. The file position lives with the handle,
// in memory: positioning costs no system call. In a forked child the handles of its parent are not
// open. There is room for at least 48 open files, which is all that the tables of the logic hold.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarsil::platform {

using file_handle = int32_t;

inline constexpr file_handle no_file = -1;
inline constexpr int32_t max_file_bytes = 0x7fffffff;
inline constexpr uint32_t invalid_position = 0xffffffffU;

enum class disposition : uint8_t { open_existing, create_new };
enum class access : uint8_t { read_only, read_write };

// none: while the file is open, no second open succeeds, by anyone and with any access. Together
// with read_only it is a mere question, asked at the open: granted if nobody has the file open, but
// keeping nobody else out afterwards.
// read_write: any number of opens side by side that all ask for read_write; never one beside an
// open with none.
enum class share : uint8_t { none, read_write };

enum class origin : uint8_t { begin, current, end };

// Opens or creates the file called `name` (8-bit, 0-terminated, taken as it stands). No name and an
// empty one are refused. open_existing fails if the name does not exist, is no regular file, or if
// access or sharing can't be granted now. create_new goes with access read_write only; it fails if
// the name exists, whatever it is; it never truncates, and nobody ever sees the new file without
// its share mode. The file position begins at 0. Result: the handle, or no_file.
file_handle CreateFileA(const char* name, access wanted_access, share wanted_share,
                        disposition how);

// Closes the file; all its locks end, also those that a forked child holds copies of. False for a
// handle that isn't open or when the system reports a failure; the handle is gone in the second
// case too.
bool CloseHandle(file_handle file);

// Removes the file called `name`, unless somebody has it open; false for no name and an empty one.
// The result is for tests; the logic ignores it.
bool DeleteFileA(const char* name);

// Moves `bytes` bytes at the file position and advances it by the bytes moved, whose number goes to
// `moved`. Reading at the end of the file is short or 0 and still true. Writing may start beyond
// the end of the file; the gap reads as zeros. False when the system reports a failure; `moved`
// then tells what had been moved before it. A transfer that would end beyond max_file_bytes, or
// beyond a limit that the system sets to this process, is refused before a byte moves.
bool ReadFile(file_handle file, void* buffer, uint32_t bytes, uint32_t& moved);

// What a kill in the midst of a write may leave, where the platform has the choice. What is written
// over goes from the back, so that bytes that move up stay whole, or from the front, for bytes that
// move down; its first 16 bytes are there or not; or nobody counts on any of it yet, and the file
// may grow ahead for it. What is appended always goes from the front.
enum class care : uint8_t { from_back, from_front, first_16_at_once, not_counted_yet };
bool WriteFile(file_handle file, const void* buffer, uint32_t bytes, uint32_t& moved,
               care wanted = care::from_back);

// A look at `bytes` bytes from the file position where they lie, without a copy; the position
// stays. None where that isn't offered, or where the file doesn't reach so far: ReadFile tells more
// then. No other operation goes between the two calls. EndLook is false if what was seen doesn't
// count, whatever it was; then, too, ReadFile tells more. Nothing keeps a foreign program from
// changing the bytes meanwhile, so what bounds a further access is read once.
const uint8_t* LookAtFile(file_handle file, uint32_t bytes);
bool EndLook(file_handle file);

// Sets the file position to `distance` from `from` and gives the new position; invalid_position for
// a failure or a position below 0 or above max_file_bytes, the position then being as before. A
// distance of 0 from `current` reads the position, from `end` it gives the size of the file (and
// moves there).
uint32_t SetFilePointer(file_handle file, int32_t distance, origin from);

// Locks a byte range exclusively, answering at once. Fails if it overlaps any range locked by any
// open of the file, this handle's own ranges included, or if offset or length is negative or length
// is 0. The range may lie beyond the end of the file. A handle has room for at least 5 ranges.
bool LockFile(file_handle file, int32_t offset, int32_t length);

// Undoes one lock that this handle placed with exactly this offset and length; anything else fails.
bool UnlockFile(file_handle file, int32_t offset, int32_t length);

// True when all that was written through this handle, and the name of the file, are on stable
// storage. A failure is remembered: no later flush of this handle turns it into success.
bool FlushFileBuffers(file_handle file);

// Makes `length` bytes from `offset`, all inside the file, read as zeros and gives their space back
// to the file system where it can; the length of the file stays. Position and locks are not
// touched.
bool ZeroFileRange(file_handle file, int32_t offset, int32_t length);

// The system's number for the last failure of this layer. The logic drops it; it is there for a
// debugger.
uint32_t GetLastError();

// A zero-filled block of `bytes` bytes, or none. LocalFree takes none as well and does nothing
// then.
void* LocalAlloc(size_t bytes);
void LocalFree(void* block);

} // namespace tarsil::platform
