// The validators; see core/validators.h for what they answer and why their order matters.
#include "core/validators.h"

#include "core/tables.h"
#include "index/slots.h"

namespace tarsil {

int32_t check_data_slot(int32_t data_handle)
{
    if (data_handle < 0 || data_handle >= TS_MAX_DATA_FILES) return TS_BAD_DATA_HANDLE;
    const char status = data_slots[data_handle].status;
    if (status != slot_clean && status != slot_dirty) return TS_DATA_NOT_OPEN;
    return TS_OK;
}

int32_t check_current(int32_t data_handle)
{
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    if (data_slots[data_handle].current_record < 1) return TS_NO_CURRENT_RECORD;
    return TS_OK;
}

int32_t check_not_variable(int32_t data_handle)
{
    if (data_slots[data_handle].header.record_length == variable_length)
        return TS_NEEDS_FIXED_LENGTH;
    return TS_OK;
}

int32_t check_key(int32_t data_handle, int32_t index_handle, int32_t key_number, test_key test)
{
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    if (index_handle < 0 || index_handle >= TS_MAX_INDEX_FILES) return TS_BAD_INDEX_HANDLE;
    const index_slot* index = data_slots[data_handle].indexes[index_handle];
    if (index == nullptr) return TS_INDEX_NOT_OPEN;
    if (test == test_key::off) return TS_OK;
    // A number below 0 must not reach the table of keys either; it is as wrong as one that is too
    // large.
    if (key_number < 0 || index->key_count <= key_number) return TS_BAD_KEY_NUMBER;
    return TS_OK;
}

int32_t normalise_yes_no(char& letter)
{
    if (letter == 'Y') letter = yes;
    if (letter == 'N') letter = no;
    return letter == yes || letter == no ? int32_t{TS_OK} : int32_t{TS_BAD_CURSOR_LETTER};
}

int32_t find_free_data_slot()
{
    for (int32_t data_handle = 0; data_handle < TS_MAX_DATA_FILES; ++data_handle) {
        const char status = data_slots[data_handle].status;
        if (status == slot_never_started) return TS_NOT_STARTED;
        if (status == slot_free) return data_handle;
    }
    return TS_NO_FREE_DATA_SLOT;
}

} // namespace tarsil
