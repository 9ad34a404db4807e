// Closing an index file.
//
// In single-user mode the file's key records may lag behind memory, which a changed tree shows by
// `dirty`, and the close brings them up. In multi-user mode whoever changed a tree has written them
// by then. A failure leaves the index open and the call may be repeated: after a failed write it
// begins anew, and after a failed close, with which the file is gone all the same, it finds no file
// and gives the memory back.
#include "core/validators.h"
#include "index/index_memory.h"
#include "index/node_io.h"
#include "multiuser/range_lock.h"

using namespace tarsil;

namespace {

int32_t close_file(int32_t data_handle, int32_t index_handle)
{
    index_slot& index = index_of(data_handle, index_handle);
    if (index.file == platform::no_file) return TS_OK;
    if (!is_shared() && index.dirty == yes) {
        const int32_t code = write_key_records(data_handle, index_handle);
        if (code != TS_OK) return code;
    }
    const bool closed = platform::CloseHandle(index.file);
    index.file = platform::no_file;
    forget_ranges(data_handle, index_handle);
    return closed ? int32_t{TS_OK} : int32_t{TS_CLOSE_INDEX_FAILED};
}

} // namespace

int32_t tsclosei32(int32_t data_handle, int32_t index_handle)
{
    int32_t code = check_key(data_handle, index_handle, 0, test_key::off);
    if (code != TS_OK) return code;
    code = close_file(data_handle, index_handle);
    if (code != TS_OK) return code;
    release_index_memory(data_handle, index_handle);
    return TS_OK;
}
