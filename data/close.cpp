// tsclosed32: closing a data file and its index files.
//
// In single-user mode this is where a header that is still dirty reaches the file; in multi-user
// mode every change has gone there already. The status changes last, because closing an index asks
// for an open slot. A call that failed after the file was closed may be repeated: it finds no file
// and goes on with the index files that are left.
#include "core/tables.h"
#include "core/validators.h"
#include "data/header.h"
#include "data/slot_file.h"

using namespace tarsil;

namespace {

int32_t close_file(int32_t data_handle)
{
    const data_slot& slot = data_slots[data_handle];
    if (slot.file == platform::no_file) return TS_OK;
    if (!is_shared() && slot.status == slot_dirty) {
        const int32_t code = write_data_header(data_handle);
        if (code != TS_OK) return code;
    }
    return close_slot_file(data_handle) ? int32_t{TS_OK} : int32_t{TS_CLOSE_DATA_FAILED};
}

int32_t close_indexes(int32_t data_handle)
{
    for (int32_t index_handle = 0; index_handle < TS_MAX_INDEX_FILES; ++index_handle) {
        if (data_slots[data_handle].indexes[index_handle] == nullptr) continue;
        const int32_t code = tsclosei32(data_handle, index_handle);
        if (code != TS_OK) return code;
    }
    return TS_OK;
}

} // namespace

int32_t tsclosed32(int32_t data_handle)
{
    int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    code = close_file(data_handle);
    if (code != TS_OK) return code;
    code = close_indexes(data_handle);
    if (code != TS_OK) return code;
    data_slots[data_handle].status = slot_free;
    return TS_OK;
}
