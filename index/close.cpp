// Closing an index file.
//
// In single-user mode the file's key records may lag behind memory, which a changed tree shows by
// `dirty`, and the close brings them up. In multi-user mode whoever changed a tree has written them
// by then. A failed write leaves the index open, so that the close can be repeated.
#include "core/validators.h"
#include "index/index_memory.h"
#include "index/node_io.h"
#include "multiuser/range_lock.h"

using namespace tarsil;

int32_t tsclosei32(int32_t data_handle, int32_t index_handle)
{
    int32_t code = check_key(data_handle, index_handle, 0, test_key::off);
    if (code != TS_OK) return code;
    const index_slot& index = index_of(data_handle, index_handle);
    if (!is_shared() && index.dirty == yes) {
        code = write_key_records(data_handle, index_handle);
        if (code != TS_OK) return code;
    }

    if (!platform::CloseHandle(index.file)) return TS_CLOSE_INDEX_FAILED;
    forget_ranges(data_handle, index_handle);
    release_index_memory(data_handle, index_handle);
    return TS_OK;
}
