// The letters that the library stores in files and keeps in memory, by name.
//
// Yes and no, the states of a slot, the mark of a record and the type of a node are single bytes;
// code compares them with these names and never with a character of its own.
#pragma once

namespace tarsil {

inline constexpr char yes = 'y';
inline constexpr char no = 'n';

// data_slot.status. 0 is a slot before the first tsinit32.
inline constexpr char slot_never_started = 0;
inline constexpr char slot_free = 'u';
inline constexpr char slot_clean = 'n'; // open; the mirror of the header and the file agree
inline constexpr char slot_dirty =
    'y'; // open; the mirror may hold changes that are not in the file yet
inline constexpr char slot_spoilt =
    ' '; // an open or a rebuild failed on it; out of use until tsinit32

// First byte of a record's frame. Any letter but mark_deleted reads as live.
inline constexpr char mark_live = ' ';
inline constexpr char mark_deleted = 'd';

// Last byte of a node.
inline constexpr char node_leaf = 'l';
inline constexpr char node_branch = 'b';

} // namespace tarsil
