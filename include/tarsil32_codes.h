// The result codes of TARSIL32, one line each: name, number, cause, remedy.
//
// The one place where codes are told: the enum of tarsil32.h, the texts of the C++ face, the manual
// and the command-line tool are all made from this table. The numbers are part of the interface and
// never change; the numbers that are missing mean nothing. Most numbers name a site more than a
// kind of failure: like conditions at different sites have different numbers. X is called as
// X(name, number, cause, remedy).
#ifndef TARSIL32_CODES_H
#define TARSIL32_CODES_H

// clang-format off
#define TARSIL32_CODES(X) \
    /* Outcomes: the request was sound and the data answers no; nothing has changed in any file. */ \
    X(TS_CREATE_DATA_FILE_EXISTS, -1, "tscrdata32: the file can be opened, so it exists already", \
      "Choose another name, or open the file with tsopend32") \
    X(TS_OPEN_DATA_NOT_THERE, -2, "tsopend32: the data file does not exist or cannot be opened in the present mode", \
      "Check the name and the permissions, and whether another program has it open") \
    X(TS_OPEN_INDEX_NOT_THERE, -3, "tsopeni32: the index file does not exist or cannot be opened in the present mode", \
      "Check the name and the permissions, and whether another program has it open") \
    X(TS_NEXT_RECORD_AT_END, -4, "tsgetnd32: the current record is the last one of the file", \
      "None needed: the walk in file order is complete") \
    X(TS_NEEDS_FIXED_LENGTH, -5, "The operation needs fixed-length records and the file has variable-length ones", \
      "Walk forward with tsgetfd32 and tsgetnd32, or use a key") \
    X(TS_PREVIOUS_RECORD_AT_START, -6, "tsgetpd32: the current record is the first one of the file", \
      "None needed: the walk in file order is complete") \
    X(TS_UNDELETE_RECORD_LIVE, -7, "tsundeld32: the record is not deleted", \
      "None needed") \
    X(TS_DELETE_RECORD_DELETED, -8, "tsdeld32: the record is deleted already", \
      "None needed") \
    X(TS_WALK_NO_RECORDS, -9, "tsgetfi32, tsgetli32: the data file has no records", \
      "Add records first") \
    X(TS_CURSOR_NONE, -10, "The key was opened without a cursor, or its cursor has no position", \
      "Open the index with cursor letter 'y' and place the cursor with a read by key value or with tsgetfi32") \
    X(TS_NEXT_ENTRY_AT_END, -11, "tsgetni32: no entry behind the current one; the last record was delivered again", \
      "None needed: the walk in key order is complete") \
    X(TS_PREVIOUS_ENTRY_AT_START, -12, "tsgetpi32: no entry before the current one; the first record was delivered again", \
      "None needed: the walk in key order is complete") \
    X(TS_FIND_NO_ENTRY, -13, "No entry of the key equals the key value", \
      "Check how the key value was packed, or search for the nearest value with tsgetipp32") \
    X(TS_DELETE_FOUND_DELETED, -14, "tsdeli32: the record found by key is deleted already", \
      "None needed") \
    X(TS_UNDELETE_FOUND_LIVE, -15, "tsundeli32: the record found by key is not deleted", \
      "None needed") \
    X(TS_UPDATE_LENGTH_DIFFERS, -16, "An update was asked to change the length of the stored record", \
      "Delete the record and add the new one") \
    X(TS_FIRST_RECORD_NONE, -17, "tsgetfd32, tscrindd32: the data file has no records", \
      "Add records first; an index made by tscrindd32 is there, empty and open") \
    X(TS_LAST_RECORD_NONE, -18, "tsgetld32: the data file has no records", \
      "Add records first") \
    X(TS_PURGE_NOTHING_DELETED, -19, "tspurge32: there are no deleted records", \
      "None needed") \
    X(TS_UPDATE_KEY_CHANGED, -20, "An update would change a field of an open key, and mode is 0 or below", \
      "Update with mode 1 or 2 to delete the record and add it anew") \
    X(TS_DELETE_CURSOR_DELETED, -21, "tsdelci32: the record at the cursor is deleted already", \
      "None needed") \
    X(TS_UNDELETE_CURSOR_LIVE, -22, "tsudelci32: the record at the cursor is not deleted", \
      "None needed") \
    X(TS_DELETE_CURRENT_DELETED, -23, "tsdelcd32: the current record is deleted already", \
      "None needed") \
    X(TS_UNDELETE_CURRENT_LIVE, -24, "tsudelcd32: the current record is not deleted", \
      "None needed") \
    X(TS_PARTIAL_NO_ENTRY, -29, "tsgetip32: no entry matches the leading part of the key value", \
      "Search for the nearest value with tsgetipp32") \
    X(TS_REBUILD_NOT_THERE, -30, "tsrbdbh32: the data file does not exist or cannot be opened in the present mode", \
      "Check the name, and close the file wherever it is open") \
    X(TS_UPDATE_RECORD_DELETED, -32, "tsupd32: the stored record is deleted", \
      "Undelete the record first") \
    X(TS_UPDATE_CURSOR_DELETED, -33, "tsupci32: the record at the cursor is deleted", \
      "Undelete the record first") \
    X(TS_UPDATE_FOUND_DELETED, -34, "tsupi32: the record found by key is deleted", \
      "Undelete the record first") \
    /* Refusals and exhausted tables: a bad argument, a wrong handle, no free slot, no memory. */ \
    X(TS_CREATE_BAD_RECORD_LENGTH, -50, "tscrdata32: the record length is below 1 and is not -1, or a file has no room for so many fields", \
      "Give a length of 1 or more, or -1 for variable-length records, and 0 or more fields") \
    X(TS_NOT_STARTED, -51, "The library has not been started", \
      "Call tsinit32 first") \
    X(TS_NO_FREE_DATA_SLOT, -52, "All 8 data file slots are taken or spoilt by a failed open", \
      "Close data files; slots of failed opens come back with the next tsinit32") \
    X(TS_KEY_BAD_ORDER, -53, "tscrind32: the order of a key is 1, or so large that its nodes have no room in a file", \
      "Give an order of 2 or more, or 0 for the automatic one") \
    X(TS_KEY_BAD_STRING_LENGTH, -55, "tscrind32: the length of a string field is 0 or above 256", \
      "Give a length from 1 to 256") \
    X(TS_KEY_BAD_TYPE, -56, "tscrind32: the type letter of a key field is none of H h L U i l f d c s", \
      "Use one of the ten letters") \
    X(TS_CREATE_INDEX_FILE_EXISTS, -57, "tscrind32: the index file exists already", \
      "Choose another name, or open the file with tsopeni32") \
    X(TS_KEY_BAD_FIELD_COUNT, -58, "tscrind32: a key has fewer than 1 or more than 16 fields", \
      "Give 1 to 16 fields") \
    X(TS_NO_FREE_INDEX_SLOT, -60, "Five index files are open on this data file already", \
      "Close an index file first") \
    X(TS_BAD_DATA_HANDLE, -61, "The data handle is outside 0 to 7", \
      "Use the handle that the create or open operation returned") \
    X(TS_DATA_NOT_OPEN, -62, "No data file is open under this handle", \
      "Open the file; after tsclosed32 the handle is void") \
    X(TS_NO_MEMORY_INDEX_SLOT, -63, "No memory for the record of an open index file", \
      "Free memory") \
    X(TS_BAD_CURSOR_LETTER, -65, "A cursor letter is none of y, Y, n, N", \
      "Give 'y' for a key with a cursor, else 'n'") \
    X(TS_NO_MEMORY_KEY_SLOT, -66, "No memory for the record of an open key", \
      "Free memory") \
    X(TS_NO_MEMORY_ROOT_NODE, -67, "No memory for the root node of a key", \
      "Free memory") \
    X(TS_NO_MEMORY_WORK_NODE, -68, "No memory for the node of a cursor", \
      "Free memory, or open keys without cursors") \
    X(TS_NO_MEMORY_SCRATCH, -69, "No memory for larger shared node buffers; the old ones are back in place", \
      "Free memory, or use a smaller order") \
    X(TS_BAD_INDEX_HANDLE, -70, "The index handle is outside 0 to 4", \
      "Use the handle that the create or open operation returned") \
    X(TS_INDEX_NOT_OPEN, -71, "No index file is open under this handle", \
      "Open the index file; after tsclosei32 the handle is void") \
    X(TS_BAD_MAGIC, -72, "The file is not of the expected kind", \
      "Check that data and index file names are not mixed up") \
    X(TS_RECORD_TOO_SHORT, -73, "The length of a record to be stored is below 1", \
      "Give the length of the record") \
    X(TS_NO_MEMORY_PATH, -74, "tsinit32: no memory for the path stack", \
      "Free memory") \
    X(TS_NO_MEMORY_KEY, -75, "tsinit32: no memory for the key buffer", \
      "Free memory") \
    X(TS_NO_CURRENT_RECORD, -76, "The data file has no current record", \
      "Read a record first, for example with tsgetfd32") \
    X(TS_BAD_RECORD_NUMBER, -77, "The record number is below 1 or above the number of records", \
      "Ask tsstatd32 for the number of records") \
    X(TS_UPDATE_NO_CURRENT, -79, "tsupcd32: there is no current record, or it lies beyond the number of records", \
      "Read a record first") \
    X(TS_DELETE_NO_CURRENT, -80, "tsdelcd32, tsudelcd32: there is no current record, or it lies beyond the number of records", \
      "Read a record first") \
    X(TS_VERSION_BAD_MODE, -81, "tsvernum32: the mode is none of 0, 1, 2", \
      "Use 0 for the library, 1 for a data file, 2 for an index file") \
    X(TS_CLOSE_DATA_FAILED, -82, "tsclosed32: the system reports that closing the file failed", \
      "Check the disk; what was flushed before is safe") \
    X(TS_CLOSE_INDEX_FAILED, -83, "tsclosei32: the system reports that closing the file failed", \
      "Check the disk; what was flushed before is safe") \
    X(TS_PARTIAL_BAD_FIELD_COUNT, -91, "tsgetip32: the number of fields is below 1 or above that of the key", \
      "Give 1 to the field count of the key") \
    X(TS_PARTIAL_BAD_LENGTH, -92, "tsgetip32: the length within the last string field is 0 or above the length of the field", \
      "Give 1 to the length of the field") \
    X(TS_BAD_AUTO_UPDATE_LETTER, -93, "tsautoup32: the letter is none of y, Y, n, N", \
      "Give 'y' or 'n'") \
    X(TS_NEAREST_BAD_FIELD_COUNT, -94, "tsgetipp32: the number of fields is below 1 or above that of the key", \
      "Give 1 to the field count of the key") \
    X(TS_NEAREST_BAD_LENGTH, -95, "tsgetipp32: the length within the last string field is 0 or above the length of the field", \
      "Give 1 to the length of the field") \
    X(TS_PURGE_END_POSITION, -96, "tspurge32: the new end of the file cannot be reached; records are moved, nothing else is written", \
      "Release the ranges that are still held, close, and restore the file from a copy") \
    X(TS_BAD_PRECISION, -97, "tsspdoub32: the precision is below 0", \
      "Give 0 or more") \
    /* Multi-user operation and locks, and four failures of creating, reading and adding. */ \
    X(TS_BAD_MULTI_USER_LETTER, -200, "tsmuser32: the letter is none of y, Y, n, N", \
      "Give 'y' or 'n'") \
    X(TS_LOCK_REFUSED, -204, "Another process holds a range of this file", \
      "Try again: the library itself never waits") \
    X(TS_INDEX_LOCK_SINGLE_USER, -205, "tslocki32, tsulocki32: not in multi-user mode", \
      "Switch with tsmuser32 before files are opened") \
    X(TS_MULTI_USER_ALREADY, -206, "tsmuser32: multi-user mode is on already", \
      "None needed") \
    X(TS_NO_MEMORY_LOCK_TABLE, -207, "tsmuser32: no memory for the lock table", \
      "Free memory") \
    X(TS_LOCK_NO_POSITION, -208, "The position in the file cannot be read, as on a file that could not be opened or created", \
      "Check the permissions of the file and its folder") \
    X(TS_UNLOCK_NOT_HELD, -209, "Release: no held range has exactly this offset and length", \
      "Release what was locked, once") \
    X(TS_UNLOCK_NOT_HELD_FULL, -210, "Release: no held range has exactly this offset and length, and all 5 places are taken", \
      "Release what was locked, once") \
    X(TS_LOCK_TABLE_FULL, -211, "All 5 ranges that a process can hold on one file are in use", \
      "Release ranges, or take the whole file") \
    X(TS_CURSOR_FILE_CHANGED, -212, "Another process has changed the number of records since this one last read it; the cursor may be out of date", \
      "Place the cursor anew, or call again to go on from where it stands") \
    X(TS_DATA_LOCK_SINGLE_USER, -213, "tslockd32, tsulockd32: not in multi-user mode", \
      "Switch with tsmuser32 before files are opened") \
    X(TS_RECORD_LOCK_SINGLE_USER, -214, "tslockdr32, tsulckdr32: not in multi-user mode", \
      "Switch with tsmuser32 before files are opened") \
    X(TS_RECORD_LOCK_BAD_NUMBER, -215, "tslockdr32, tsulckdr32: the record number is below 1 or above the number of records", \
      "Ask tsstatd32 for the number of records") \
    X(TS_UNLOCK_ALL_SINGLE_USER, -216, "tsulalld32, tsulalli32: not in multi-user mode", \
      "None needed: no ranges are held") \
    X(TS_BAD_KEY_COUNT, -217, "tscrind32: the number of keys is outside 0 to 8", \
      "Give 0 to 8 keys; use further index files for more") \
    X(TS_FIELD_TABLE_WRITE_SHORT, -218, "tscrdata32: an entry of the field table was not written whole", \
      "Check the space on the disk") \
    X(TS_FIELD_TABLE_READ_SHORT, -220, "tsfields32: the field table was not read whole", \
      "The file is cut or damaged: check it") \
    X(TS_DUPLICATE_KEY, -222, "tsadd32: a key holds the key value of the new record already", \
      "Change the record, or allow duplicates with 'y'") \
    X(TS_SHARING_NOT_THERE, -223, "tsmuser32: the system offers no file sharing", \
      "Work in single-user mode") \
    /* Version and walks. */ \
    X(TS_NO_MEMORY_SAVED_PATH, -300, "No memory for the saved path of a cursor", \
      "Free memory, or open keys without cursors") \
    X(TS_BAD_KEY_NUMBER, -301, "The index file has no key of this number", \
      "Use 0 to the number of keys less 1") \
    X(TS_BAD_MAJOR_VERSION, -302, "The file has another major version than 2", \
      "Convert the file with the program that wrote it") \
    X(TS_BAD_MINOR_VERSION, -303, "The file has another minor version than 10", \
      "Convert the file with the program that wrote it") \
    X(TS_HEADER_WRITE_POSITION, -304, "The header of the data file cannot be reached for writing", \
      "Check the disk") \
    X(TS_PREVIOUS_ENTRY_LOST, -307, "tsgetpi32: start of the key, and going back to its first entry failed", \
      "Place the cursor anew; check the index") \
    X(TS_NEXT_ENTRY_LOST, -308, "tsgetni32: end of the key, and going back to its last entry failed", \
      "Place the cursor anew; check the index") \
    X(TS_FLUSH_FAILED, -309, "The system reports that flushing the file failed", \
      "Check the disk: what was written since the last good flush may be lost") \
    X(TS_UPDATE_CURRENT_DELETED, -310, "tsupcd32: the current record is deleted", \
      "Undelete the record first") \
    /* This library's own codes beyond the classic ones: damaged index files. */ \
    X(TS_INDEX_BAD_KEY_COUNT, -400, "tsopeni32: the index file tells a number of keys outside 0 to 8", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_INDEX_BAD_KEY_RECORD, -401, "A key record of the index file breaks the rules of the format", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_TREE_TOO_DEEP, -402, "The tree of a key is deeper than a path can hold, or goes round in a circle", \
      "Use a larger order, or build the index anew with tscrindd32") \
    X(TS_NODE_DAMAGED, -403, "A node of the index file breaks the rules of the format", \
      "The index is damaged: build it anew with tscrindd32") \
    /* File access: a positioning or a transfer failed at one particular site. */ \
    X(TS_FILE_MARK_WRITE_POSITION, -1001, "The start of a new file cannot be reached, as when the file could not be created", \
      "Check the name and the permissions of the folder") \
    X(TS_FILE_MARK_WRITE_SHORT, -1002, "The file mark was not written whole", \
      "Check the space on the disk") \
    X(TS_HEADER_READ_POSITION, -1003, "The header or the field table of the data file cannot be reached for reading", \
      "Check the disk") \
    X(TS_HEADER_WRITE_SHORT, -1004, "The header of the data file was not written whole", \
      "Check the space on the disk") \
    X(TS_CREATE_INDEX_FAILED, -1005, "tscrind32: the index file could not be created", \
      "Check the name and the permissions of the folder") \
    X(TS_SCRATCH_LOST, -1006, "No memory for the shared node buffer, not even of its old size", \
      "Close all files and start the library anew") \
    X(TS_SHARED_NODE_LOST, -1007, "No memory for the node buffer of keys without a cursor, not even of its old size", \
      "Close all files and start the library anew") \
    X(TS_KEY_RECORDS_WRITE_POSITION, -1008, "The key records of the index file cannot be reached for writing", \
      "Check the disk") \
    X(TS_NODE_WRITE_POSITION, -1010, "The place of a node cannot be reached for writing, as when the file would pass 2 GiB", \
      "Check the disk and the size of the file") \
    X(TS_NODE_WRITE_SHORT, -1011, "A node was not written whole", \
      "Check the space on the disk, then build the index anew") \
    X(TS_HEADER_READ_SHORT, -1013, "The header of the data file was not read whole", \
      "The file is cut: salvage it") \
    X(TS_MAGIC_READ_POSITION, -1014, "The magic of the file cannot be reached", \
      "Check the disk") \
    X(TS_MAGIC_READ_SHORT, -1015, "The magic of the file was not read whole", \
      "The file is cut or is no file of this kind") \
    X(TS_OPEN_INDEX_FAILED, -1016, "tsopeni32: the index file could not be opened for reading and writing", \
      "Check the permissions of the file") \
    X(TS_KEY_RECORDS_READ_POSITION, -1017, "The key records of the index file cannot be reached for reading", \
      "Check the disk") \
    X(TS_NODE_READ_POSITION, -1018, "The place of a node cannot be reached for reading", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_NODE_READ_SHORT, -1019, "A node was not read whole", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_KEY_RECORDS_READ_SHORT, -1020, "The key records of the index file were not read whole", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_KEY_RECORDS_WRITE_SHORT, -1021, "The key records of the index file were not written whole", \
      "Check the space on the disk, then build the index anew") \
    X(TS_RECORD_WRITE_POSITION, -1022, "The place of a record cannot be reached for writing, as when the file would pass 2 GiB", \
      "Check the disk and the size of the file") \
    X(TS_RECORD_WRITE_SHORT, -1025, "A record or its mark was not written whole", \
      "Check the space on the disk") \
    X(TS_BODY_READ_SHORT, -1027, "The body of a record was not read whole, or the length in its frame cannot be true", \
      "The file is cut or damaged: salvage it") \
    X(TS_FRAME_READ_POSITION, -1028, "The frame of a record cannot be reached", \
      "The file or the index is damaged: check them") \
    X(TS_FRAME_READ_SHORT, -1029, "The frame of a record was not read whole, as at the end of the file", \
      "The file is cut, or the index names a record that is not there: check them") \
    X(TS_DELETE_RECORD_POSITION, -1030, "tsdeld32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_UNDELETE_RECORD_POSITION, -1031, "tsundeld32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_WALK_CHILD_MISSING, -1032, "The walk to the first or last entry of a key met a missing child", \
      "The index is damaged: build it anew with tscrindd32") \
    X(TS_DELETE_FOUND_POSITION, -1033, "tsdeli32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_UNDELETE_FOUND_POSITION, -1034, "tsundeli32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_DELETE_CURSOR_POSITION, -1035, "tsdelci32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_UNDELETE_CURSOR_POSITION, -1036, "tsudelci32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_DELETE_CURRENT_POSITION, -1037, "tsdelcd32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_UNDELETE_CURRENT_POSITION, -1038, "tsudelcd32: the mark of the record cannot be reached", \
      "Check the disk") \
    X(TS_VERSION_READ_POSITION, -1039, "The version byte cannot be reached, as when the file opens for reading only", \
      "Check the permissions of the file") \
    X(TS_VERSION_READ_SHORT, -1040, "The version byte cannot be read, as in an empty file", \
      "The file is empty") \
    X(TS_REBUILD_NO_SIZE, -1052, "tsrbdbh32: the size of the file cannot be found, as when it opens for reading only", \
      "Check the permissions of the file") \
    X(TS_LOCK_POSITION, -1100, "The position in the file cannot be set to the range of a lock", \
      "Check the disk") \
    X(TS_LOCK_RESTORE_POSITION, -1101, "A range was locked or released, and the position in the file cannot be restored", \
      "Check the disk") \
    X(TS_OPEN_DATA_LOCK_FAILED, -2919, "tsopend32: the whole file could not be locked for opening", \
      "Try again: another process is working on the file") \
    X(TS_KEY_COUNT_WRITE_SHORT, -3000, "tscrind32: the number of keys was not written whole", \
      "Check the space on the disk") \
    X(TS_KEY_COUNT_READ_POSITION, -3005, "tsopeni32: the number of keys cannot be reached", \
      "Check the disk") \
    X(TS_KEY_COUNT_READ_SHORT, -3006, "tsopeni32: the number of keys cannot be read", \
      "The index is cut: build it anew with tscrindd32")
// clang-format on

#endif
