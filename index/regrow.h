// Growing all open indexes of a data file anew, for a purge, after which every record may stand
// elsewhere.
//
// The old trees are dropped in memory and never read again; new ones grow over them from the first
// byte behind the key records, insert by insert. From begin_regrowth to end_regrowth the end of
// each index file is the one in memory, since the file keeps its old length. In multi-user mode the
// caller holds the whole-file brackets of all these files.
#pragma once

#include <cstdint>

#include "index/compare.h"

namespace tarsil {

// Makes every key of every open index an empty leaf, in memory alone. TS_OK; or, with nothing
// changed, TS_NO_MEMORY_SCRATCH when the buffers that trees grow with are missing,
// TS_NODE_WRITE_POSITION when the roots have no room in a file.
[[nodiscard]] int32_t begin_regrowth(int32_t data_handle);

// Inserts a record into every key of every open index. tree_insert's codes.
[[nodiscard]] int32_t regrow_record(int32_t data_handle, const record_image& record,
                                    int32_t record_offset);

// Writes the empty roots, where no record was inserted. write_node's codes.
[[nodiscard]] int32_t write_empty_roots(int32_t data_handle);

// New nodes again go where the file ends. Belongs on every way out behind begin_regrowth.
void end_regrowth(int32_t data_handle);

} // namespace tarsil
