// tsvernum32: the version of the library, of a data file or of an index file.
//
// A version is one byte, the first of a file: the major version in its high half and the minor in
// its low half. The byte is taken as signed and split by division, so that a byte above 0x7F gives
// negative numbers, which no version is.
#include "core/tables.h"
#include "core/validators.h"
#include "files/file_mark.h"
#include "files/files.h"
#include "multiuser/held_range.h"

using namespace tarsil;

namespace {

constexpr int32_t version_radix = 16;

int32_t read_version_byte(const file_range& place, int8_t& version)
{
    if (!move_to(place.file, place.offset)) return TS_VERSION_READ_POSITION;

    held_range range;
    int32_t code = lock_if_needed(range, place);
    if (code < 0) return code;

    const int32_t bytes = read_file(place.file, &version, place.length);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != place.length) return TS_VERSION_READ_SHORT;
    return TS_OK;
}

int32_t version_of_data_file(int32_t data_handle, int8_t& version)
{
    const int32_t code = check_data_slot(data_handle);
    if (code != TS_OK) return code;
    return read_version_byte(data_range(data_handle, 0, 1), version);
}

int32_t version_of_index_file(int32_t data_handle, int32_t index_handle, int8_t& version)
{
    const int32_t code = check_key(data_handle, index_handle, 0, test_key::off);
    if (code != TS_OK) return code;
    return read_version_byte(index_range(data_handle, index_handle, 0, 1), version);
}

} // namespace

int32_t tsvernum32(int32_t mode, int32_t* major, int32_t* minor, int32_t data_handle,
                   int32_t index_handle)
{
    int8_t version = version_byte;
    int32_t code = TS_OK;
    switch (mode) {
    case 0: break;
    case 1: code = version_of_data_file(data_handle, version); break;
    case 2: code = version_of_index_file(data_handle, index_handle, version); break;
    default: return TS_VERSION_BAD_MODE;
    }
    if (code != TS_OK) return code;
    *major = version / version_radix;
    *minor = version % version_radix;
    return TS_OK;
}
