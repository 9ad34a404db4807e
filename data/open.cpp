// tsopend32: opening a data file.
//
// The header is taken on trust; only the file mark is tested. In multi-user mode the whole file is
// held from the open to the end, so that nobody sees it half created and nobody changes it under
// the opening scan. The slot counts as open before the mark is read, because the reading goes
// through operations on open slots; a failure after that spoils it.
#include "core/tables.h"
#include "core/validators.h"
#include "data/data_format.h"
#include "data/header.h"
#include "data/reuse.h"
#include "data/slot_file.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

int32_t take_over_file(int32_t data_handle)
{
    int32_t code = check_magic(data_slots[data_handle].file, data_magic, data_handle,
                               data_file_number);
    if (code != TS_OK) return code;
    code = refresh_data_header(data_handle);
    if (code != TS_OK) return code;
    begin_at_first_record(data_handle);
    begin_without_indexes(data_handle);
    return scan_for_reusable(data_handle);
}

} // namespace

int32_t tsopend32(const char* name)
{
    if (tsIsFileThere32(name) == 0) return TS_OPEN_DATA_NOT_THERE;
    const int32_t data_handle = find_free_data_slot();
    if (data_handle < 0) return data_handle;

    data_slot& slot = data_slots[data_handle];
    slot.file = open_shared_file(name);
    held_range bracket;
    if (lock_if_needed(bracket, whole_data_file(data_handle)) < 0) {
        close_slot_file(data_handle);
        return TS_OPEN_DATA_LOCK_FAILED;
    }

    slot.status = slot_clean;
    const int32_t code = take_over_file(data_handle);
    static_cast<void>(release_if_placed(bracket));
    if (code != TS_OK) {
        spoil_slot(data_handle);
        return code;
    }
    return data_handle;
}
