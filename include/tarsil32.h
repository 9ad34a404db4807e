// TARSIL32 - an embedded record manager: data files with fixed-length or variable-length records,
// index files with B+tree keys, several processes at once. This header is the whole interface and
// its manual.
//
// Order of calls: tsinit32; the options; create or open data files, then their index files; work;
// tsclosed32 for every data file (it closes the index files); tsfree32. One thread at a time may be
// inside the library.
//
// Results: a signed number. 0 is success; a negative number is one of the codes of
// tarsil32_codes.h, each with its cause and remedy; a positive number has the meaning that the
// function tells. Handles start at 0, so the test for a failed create or open is "below 0". Any
// function on a file can also return the file access codes (-1001 and below) and, in multi-user
// mode, TS_LOCK_REFUSED and the other lock codes; only codes of its own are listed with a function.
// TS_BAD_DATA_HANDLE and TS_DATA_NOT_OPEN come from every function with a data_handle;
// TS_BAD_INDEX_HANDLE, TS_INDEX_NOT_OPEN and TS_BAD_KEY_NUMBER from those with an index_handle and
// a key_number.
//
// Memory: the caller owns every buffer, and no size of a buffer is passed. A record buffer has room
// for record_length bytes (tsstatd32), or for the length that tsrecd32 reports, or for the longest
// record that the caller stores. A key buffer has room for the key's fields and 4 bytes.
// Out-parameters must not be null. Nothing that a caller passes is kept beyond the call.
//
// Deleted records keep their place and their key entries until an add reuses the place or a purge
// removes them: every read finds them and sets its out-parameter `deleted` to 1 (0 for a live
// record).
//
// A file can't grow beyond 0x7fffffff bytes. The stored formats are told in docs/FILE_FORMATS.md,
// the locks in docs/LOCKING.md, what happens at the edges in docs/BEHAVIOUR.md.
#ifndef TARSIL32_H
#define TARSIL32_H

#include <stdint.h>

#include "tarsil32_codes.h"

#if defined(TARSIL32_BUILDING) && defined(__GNUC__)
#define TARSIL32_API __attribute__((visibility("default")))
#else
#define TARSIL32_API
#endif

#ifdef __cplusplus
extern "C" {
#define TARSIL32_ASSERT_SIZE(type, bytes) static_assert(sizeof(type) == (bytes), #type)
#else
#define TARSIL32_ASSERT_SIZE(type, bytes) \
    typedef char type##_size_is[sizeof(type) == (bytes) ? 1 : -1]
#endif

#define TARSIL32_CODE_ENTRY(name, number, cause, remedy) name = (number),
enum tarsil32_code { TS_OK = 0, TARSIL32_CODES(TARSIL32_CODE_ENTRY) };
#undef TARSIL32_CODE_ENTRY

enum {
    TS_STARTED = 1,          // tsinit32
    TS_VARIABLE_LENGTH = -1, // record_length of a file with variable-length records
    TS_MAX_DATA_FILES = 8,
    TS_MAX_INDEX_FILES = 5,    // per data file
    TS_MAX_KEYS = 8,           // per index file
    TS_MAX_KEY_FIELDS = 16,    // per key
    TS_MAX_STRING_FIELD = 256, // bytes
    TS_MAX_PACKED_KEY = 4100   // bytes: 16 fields of 256 bytes and the record offset
};

// One field of a data file's field table. Field letters and the lengths that are stored with them,
// whatever the caller gave: 'H' unsigned and 'h' signed 16-bit: 2; 'L', 'U' unsigned and 'i', 'l'
// signed 32-bit: 4; 'f' float: 4; 'd' double: 8; 'c' unsigned 8-bit: 1. With 's' (byte string) or
// any other letter the caller's length is stored.
typedef struct field_entry {
    int32_t length; // bytes in the record
    int32_t type;   // the letter, as a number
} field_entry;
TARSIL32_ASSERT_SIZE(field_entry, 8);

// One key of a new index file. The types are the letters of field_entry with 's' for strings of 1
// to 256 bytes.
typedef struct key_definition {
    char cursor;         // 'y' or 'Y': the key keeps a cursor; 'n' or 'N': it doesn't
    char unused_1[3];    // not read
    uint32_t order;      // 0: automatic, else 2 or more; rewritten to the entries of a node
    int32_t field_count; // 1 to 16
    int32_t unused_2;    // not read
    char types[TS_MAX_KEY_FIELDS];      // one letter per field
    int32_t lengths[TS_MAX_KEY_FIELDS]; // of 's' fields, in bytes; rewritten for all others
    int32_t offsets[TS_MAX_KEY_FIELDS]; // of each field in the record; not tested
} key_definition;
TARSIL32_ASSERT_SIZE(key_definition, 160);

// What tsstati32 tells of a key. Only the first field_count places of the arrays are written.
typedef struct key_report {
    int32_t field_count;
    int32_t reserved; // not written
    char types[TS_MAX_KEY_FIELDS];
    int32_t lengths[TS_MAX_KEY_FIELDS];
    int32_t offsets[TS_MAX_KEY_FIELDS];
} key_report;
TARSIL32_ASSERT_SIZE(key_report, 152);

// --- Start, stop, options ------------------------------------------------------------------------

// Starts the library: all slots free, all options at their defaults. Returns TS_STARTED (1), never
// 0. Called again without tsfree32 it forgets what is open. Codes: TS_NO_MEMORY_PATH,
// TS_NO_MEMORY_KEY.
TARSIL32_API int32_t tsinit32(void);

// Gives the library's memory back. Closes no file and writes nothing; only tsinit32 may follow. May
// be repeated.
TARSIL32_API void tsfree32(void);

// Write-through: 'y' or 'Y' flushes every write to stable storage, 'n' or 'N' (default) leaves that
// to the system. In single-user mode 'y' also writes a changed header at once instead of at
// tsclosed32. Code: TS_BAD_AUTO_UPDATE_LETTER.
TARSIL32_API int32_t tsautoup32(char letter);

// Reuse of deleted records by tsadd32 in files of fixed length: 'y' or 'Y' on, every other byte off
// (default). Set it before tsopend32, whose opening scan looks for the first deleted record.
TARSIL32_API void tsdelow32(char letter);

// Precision (0 or more, default 3) of float and double key fields: two values are equal when they
// differ by less than about 0.1 to this power. Not stored with the index: search under the
// precision a tree was built with. Code: TS_BAD_PRECISION.
TARSIL32_API int32_t tsspdoub32(int32_t precision);

// --- Data files ----------------------------------------------------------------------------------

// Creates a data file and leaves it open, without a current record. record_length: bytes of every
// record, 1 or more, or TS_VARIABLE_LENGTH. fields: field_count entries, whose lengths are
// rewritten as field_entry tells; not touched for 0. Returns the data_handle, 0 to 7. Codes, first
// to last: TS_NOT_STARTED, TS_NO_FREE_DATA_SLOT, TS_CREATE_DATA_FILE_EXISTS,
// TS_CREATE_BAD_RECORD_LENGTH (also for a field_count that the file has no room for),
// TS_FILE_MARK_WRITE_POSITION or TS_LOCK_NO_POSITION when the file can't be created,
// TS_FIELD_TABLE_WRITE_SHORT. A file that fails after it came into being is removed.
TARSIL32_API int32_t tscrdata32(const char* name, int32_t record_length, int32_t field_count,
                                field_entry* fields);

// Opens a data file; the current record is record 1, also in an empty file. With reuse of deleted
// records on, it is the first deleted record. Returns the data_handle. Codes:
// TS_OPEN_DATA_NOT_THERE, TS_NOT_STARTED, TS_NO_FREE_DATA_SLOT, TS_OPEN_DATA_LOCK_FAILED, those of
// the file mark and the header. After a failure past the lock the slot stays spoilt until tsinit32.
TARSIL32_API int32_t tsopend32(const char* name);

// Writes what is still dirty, closes the data file and all its index files. Codes:
// TS_CLOSE_DATA_FAILED and those of tsclosei32; the call may be repeated after a failure.
TARSIL32_API int32_t tsclosed32(int32_t data_handle);

// 1 if the file can be opened in the present mode at this moment, else 0: in single-user mode a
// file that anybody has open reads as not there.
TARSIL32_API int32_t tsIsFileThere32(const char* name);

// Facts of a data file: records (deleted ones included), deleted records, record length
// (TS_VARIABLE_LENGTH for variable), number of the current record (0: none), number of fields.
TARSIL32_API int32_t tsstatd32(int32_t data_handle, int32_t* record_count, int32_t* deleted_count,
                               int32_t* record_length, int32_t* current_record,
                               int32_t* field_count);

// Reads the field table into `fields`, which has room for as many entries as tsstatd32 tells.
// Returns their number. Code: TS_FIELD_TABLE_READ_SHORT.
TARSIL32_API int32_t tsfields32(int32_t data_handle, field_entry* fields);

// Version of the library (mode 0, needs no tsinit32), of a data file (mode 1) or of an index file
// (mode 2). Code: TS_VERSION_BAD_MODE.
TARSIL32_API int32_t tsvernum32(int32_t mode, int32_t* major_version, int32_t* minor_version,
                                int32_t data_handle, int32_t index_handle);

// --- Reading records without a key ---------------------------------------------------------------

// Each reads one record into `record`, sets `deleted`, and makes the record the current one. By
// number (1 up; in a file of variable length by walking there), the first, last, next, previous,
// current one. Codes: TS_BAD_RECORD_NUMBER; TS_FIRST_RECORD_NONE; TS_LAST_RECORD_NONE,
// TS_NEEDS_FIXED_LENGTH; TS_NEXT_RECORD_AT_END; TS_PREVIOUS_RECORD_AT_START, TS_NEEDS_FIXED_LENGTH;
// and TS_NO_CURRENT_RECORD from the last four and tsrecd32.
TARSIL32_API int32_t tsgetd32(int32_t data_handle, int32_t record_number, void* record,
                              int32_t* deleted);
TARSIL32_API int32_t tsgetfd32(int32_t data_handle, void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetld32(int32_t data_handle, void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetnd32(int32_t data_handle, void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetpd32(int32_t data_handle, void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetcd32(int32_t data_handle, void* record, int32_t* deleted);

// Number, deleted flag and body length in bytes of the current record: the way to size a buffer for
// a variable-length record.
TARSIL32_API int32_t tsrecd32(int32_t data_handle, int32_t* record_number, int32_t* deleted,
                              int32_t* length);

// --- Adding --------------------------------------------------------------------------------------

// Stores a record and its keys in every open index; it becomes the current record and every key's
// cursor stands on it. length: bytes, for files of variable length; else record_length bytes are
// taken. duplicates: 'y' or 'Y' lets keys repeat; with anything else TS_DUPLICATE_KEY comes when
// any key of any open index holds the value already. Codes: TS_RECORD_TOO_SHORT,
// TS_RECORD_WRITE_POSITION (also for a file that would pass 2 GiB). A failure while keys are
// updated leaves the record stored.
TARSIL32_API int32_t tsadd32(int32_t data_handle, const void* record, int32_t length,
                             char duplicates);

// --- Deleting and undeleting ---------------------------------------------------------------------

// Mark a record deleted, or live again: by number, the current record, the first entry that equals
// a key value, the record at the cursor of a key. Nothing but the mark and the count of deleted
// records changes. Codes, for a record in the wrong state: TS_DELETE_RECORD_DELETED,
// TS_DELETE_CURRENT_DELETED, TS_DELETE_FOUND_DELETED, TS_DELETE_CURSOR_DELETED and
// TS_UNDELETE_RECORD_LIVE, TS_UNDELETE_CURRENT_LIVE, TS_UNDELETE_FOUND_LIVE,
// TS_UNDELETE_CURSOR_LIVE; for one not found TS_BAD_RECORD_NUMBER, TS_DELETE_NO_CURRENT,
// TS_FIND_NO_ENTRY, TS_CURSOR_NONE.
TARSIL32_API int32_t tsdeld32(int32_t data_handle, int32_t record_number);
TARSIL32_API int32_t tsdelcd32(int32_t data_handle);
TARSIL32_API int32_t tsdeli32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                              const void* key_value);
TARSIL32_API int32_t tsdelci32(int32_t data_handle, int32_t index_handle, int32_t key_number);
TARSIL32_API int32_t tsundeld32(int32_t data_handle, int32_t record_number);
TARSIL32_API int32_t tsudelcd32(int32_t data_handle);
TARSIL32_API int32_t tsundeli32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                                const void* key_value);
TARSIL32_API int32_t tsudelci32(int32_t data_handle, int32_t index_handle, int32_t key_number);

// --- Updating ------------------------------------------------------------------------------------

// Replace a stored record by `record` of `length` bytes (which counts in files of variable length,
// where it must equal the stored one: else TS_UPDATE_LENGTH_DIFFERS). If no field of an open key
// changes, the record is rewritten in place: result 0. If one does: mode 0 or below refuses with
// TS_UPDATE_KEY_CHANGED; mode 1 deletes the record and adds the new one without duplicates, mode 2
// and above with: result 1, the record has a new number. When that add fails the old record stays
// deleted. deleted: as stored; a deleted record is refused with TS_UPDATE_RECORD_DELETED,
// TS_UPDATE_CURRENT_DELETED, TS_UPDATE_FOUND_DELETED or TS_UPDATE_CURSOR_DELETED. scratch: room for
// `length` bytes (record_length in files of fixed length), not the buffer of the record. Code:
// TS_UPDATE_NO_CURRENT.
TARSIL32_API int32_t tsupd32(int32_t data_handle, int32_t record_number, const void* record,
                             int32_t length, int32_t* deleted, void* scratch, int32_t mode);
TARSIL32_API int32_t tsupcd32(int32_t data_handle, const void* record, int32_t length,
                              int32_t* deleted, void* scratch, int32_t mode);
TARSIL32_API int32_t tsupi32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                             const void* key_value, const void* record, int32_t length,
                             int32_t* deleted, void* scratch, int32_t mode);
TARSIL32_API int32_t tsupci32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                              const void* record, int32_t length, int32_t* deleted, void* scratch,
                              int32_t mode);

// --- Maintenance ---------------------------------------------------------------------------------

// Takes the deleted records out of the file in place and builds all open indexes anew; records get
// new numbers. Index files that aren't open are void afterwards. buffer: room for the longest
// record. removed: how many went. The file keeps its length. Codes: TS_PURGE_NOTHING_DELETED,
// TS_PURGE_END_POSITION. There is no way back from a failure half way.
TARSIL32_API int32_t tspurge32(int32_t data_handle, void* buffer, int32_t* removed);

// Opens a data file whose header can't be trusted and makes the header from the records. buffer:
// room for the longest record, which is no longer than the file. Returns the data_handle. Codes:
// TS_REBUILD_NOT_THERE, TS_NOT_STARTED, TS_NO_FREE_DATA_SLOT, TS_REBUILD_NO_SIZE, those of the file
// mark, and TS_BODY_READ_SHORT or TS_FRAME_READ_SHORT for a file that is cut.
TARSIL32_API int32_t tsrbdbh32(const char* name, void* buffer);

// --- Index files ---------------------------------------------------------------------------------

// Creates an index file of key_count keys (0 to 8) for an open data file, empty, and leaves it
// open. Writes into the definitions: don't use them a second time. Returns the index_handle, 0
// to 4. Codes, first to last: TS_BAD_KEY_COUNT; per key TS_KEY_BAD_ORDER, TS_KEY_BAD_FIELD_COUNT,
// TS_KEY_BAD_TYPE, TS_KEY_BAD_STRING_LENGTH, TS_BAD_CURSOR_LETTER; TS_CREATE_INDEX_FILE_EXISTS,
// TS_NO_FREE_INDEX_SLOT, the TS_NO_MEMORY_ codes, TS_CREATE_INDEX_FAILED, TS_KEY_COUNT_WRITE_SHORT.
TARSIL32_API int32_t tscrind32(int32_t data_handle, const char* name, int32_t key_count,
                               key_definition* definitions);

// The same, and then builds the keys from the records of the data file, deleted ones included.
// record: room for the longest record. The current record is the last one afterwards.
// TS_FIRST_RECORD_NONE for a file without records leaves the empty index open.
TARSIL32_API int32_t tscrindd32(int32_t data_handle, const char* name, int32_t key_count,
                                key_definition* definitions, void* record);

// Opens an index file. cursors: one letter per key of the file, normalised in place to 'y' or 'n'.
// Returns the index_handle. Codes: TS_OPEN_INDEX_NOT_THERE, TS_NO_FREE_INDEX_SLOT,
// TS_OPEN_INDEX_FAILED, TS_BAD_CURSOR_LETTER, those of the file mark, and TS_INDEX_BAD_KEY_COUNT,
// TS_INDEX_BAD_KEY_RECORD, TS_NODE_DAMAGED for a damaged file.
TARSIL32_API int32_t tsopeni32(int32_t data_handle, const char* name, char* cursors);

// Closes an index file. Code: TS_CLOSE_INDEX_FAILED.
TARSIL32_API int32_t tsclosei32(int32_t data_handle, int32_t index_handle);

// --- Reading by key value ------------------------------------------------------------------------

// key_value: the fields of the key back to back, each in its length, numbers in the byte order of
// the record. Each read places the key's cursor (if it has one) on the entry found; the current
// record of the data file stays. By the whole value, the first of equal ones (TS_FIND_NO_ENTRY); by
// a leading part (TS_PARTIAL_NO_ENTRY, TS_PARTIAL_BAD_FIELD_COUNT, TS_PARTIAL_BAD_LENGTH); by a
// leading part or the nearest record instead (TS_NEAREST_BAD_FIELD_COUNT, TS_NEAREST_BAD_LENGTH):
// result 0 a match, 1 the nearest record before the value, 2 the first record of the key, all lying
// behind the value; TS_CURSOR_NONE where finding it needs a step back and the key has no cursor, or
// no entries. A leading part is the first field_count fields; of the last one, if it is a
// string, the first last_length bytes.
TARSIL32_API int32_t tsgeti32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                              const void* key_value, void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetip32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               const void* key_value, int32_t field_count, uint32_t last_length,
                               void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetipp32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                                const void* key_value, int32_t field_count, uint32_t last_length,
                                void* record, int32_t* deleted);

// --- Reading in key order ------------------------------------------------------------------------

// Read the record of the first, last, next, previous, current entry of a key and move its cursor
// there. Among equal values the record stored furthest back in the file comes first. Codes:
// TS_WALK_NO_RECORDS, TS_WALK_CHILD_MISSING (first, last); TS_CURSOR_NONE (next, previous, current;
// first and last of a key without entries); TS_CURSOR_FILE_CHANGED (next, previous, current);
// TS_NEXT_ENTRY_AT_END with the last record delivered again, TS_NEXT_ENTRY_LOST;
// TS_PREVIOUS_ENTRY_AT_START with the first record delivered again, TS_PREVIOUS_ENTRY_LOST.
TARSIL32_API int32_t tsgetfi32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetli32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetni32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetpi32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               void* record, int32_t* deleted);
TARSIL32_API int32_t tsgetci32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               void* record, int32_t* deleted);

// --- Position exchange and facts of a key --------------------------------------------------------

// Makes the record at the key's cursor the current record and tells its number. Codes:
// TS_CURSOR_NONE, TS_CURSOR_FILE_CHANGED.
TARSIL32_API int32_t tssetd2i32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                                int32_t* record_number);

// Places the key's cursor on the entry of the current record; delivers the record, its packed key
// (fields and 4 bytes of record offset) and its number. Returns 0, or 1 if the key holds no such
// entry, the cursor then having no position. Code: TS_NO_CURRENT_RECORD.
TARSIL32_API int32_t tsseti2d32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                                void* record, void* key_value, int32_t* record_number);

// Order of the tree, bytes of a node, whether the key has a cursor ('y' or 'n'), and its fields.
TARSIL32_API int32_t tsstati32(int32_t data_handle, int32_t index_handle, int32_t key_number,
                               int32_t* order, int32_t* node_bytes, char* cursor,
                               key_report* report);

// --- Multi-user operation ------------------------------------------------------------------------

// 'y' or 'Y': several processes share the files; 'n' or 'N' (default): files are opened for this
// process alone. Set it before files are opened. Codes: TS_BAD_MULTI_USER_LETTER,
// TS_MULTI_USER_ALREADY, TS_NO_MEMORY_LOCK_TABLE, TS_SHARING_NOT_THERE.
TARSIL32_API int32_t tsmuser32(char letter);

// Always 255: the platform's file sharing is there.
TARSIL32_API int32_t check_share_loaded32(void);

// Lock and release a whole data file, one record of it (fixed length), a whole index file, for a
// series of calls as one step against other processes, who get TS_LOCK_REFUSED meanwhile; nothing
// ever waits. Locks return 1 placed, 0 held already (tslockdr32: 0 for both); releases 0. A
// record's lock and release make it the current record. Codes: TS_DATA_LOCK_SINGLE_USER,
// TS_RECORD_LOCK_SINGLE_USER, TS_RECORD_LOCK_BAD_NUMBER, TS_NEEDS_FIXED_LENGTH,
// TS_INDEX_LOCK_SINGLE_USER, TS_UNLOCK_NOT_HELD, TS_LOCK_TABLE_FULL. Release before closing.
TARSIL32_API int32_t tslockd32(int32_t data_handle);
TARSIL32_API int32_t tsulockd32(int32_t data_handle);
TARSIL32_API int32_t tslockdr32(int32_t data_handle, int32_t record_number);
TARSIL32_API int32_t tsulckdr32(int32_t data_handle, int32_t record_number);
TARSIL32_API int32_t tslocki32(int32_t data_handle, int32_t index_handle);
TARSIL32_API int32_t tsulocki32(int32_t data_handle, int32_t index_handle);

// Release all ranges that this process holds on a data file, on an index file. Return how many (4
// for 5). Code: TS_UNLOCK_ALL_SINGLE_USER.
TARSIL32_API int32_t tsulalld32(int32_t data_handle);
TARSIL32_API int32_t tsulalli32(int32_t data_handle, int32_t index_handle);

// --- Text services (need no tsinit32) ------------------------------------------------------------

// Copies a 0-terminated text and brings it into a normal form, for building key values. flags is a
// sum of: 1 remove spaces; 2 keep only letters and spaces; 4 keep only digits and spaces; 8 and 16
// remove spaces at the start and the end; 32 shrink runs of spaces; 64 to capitals; 128 to small
// letters; done in this order. 255 and above: all; 0 and below: none. Letters are those of ASCII.
// destination has room for the source and its 0, and may be the source.
TARSIL32_API void tsstrcvt32(char* destination, const char* source, int32_t flags);

// Fills `length` bytes of a buffer; a length of 0 or below does nothing.
TARSIL32_API void tsinitbf32(int32_t length, char fill, void* buffer);

#ifdef __cplusplus
}
#endif

#endif
