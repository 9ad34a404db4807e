// Writing and testing the file mark; see files/file_mark.h.
#include "files/file_mark.h"

#include <cstring>

#include "files/files.h"
#include "multiuser/held_range.h"

namespace tarsil {

namespace {

constexpr int32_t version_bytes = 1;
constexpr int32_t mark_bytes = version_bytes + magic_bytes;

constexpr int32_t version_of_data_file = 1; // the modes of tsvernum32
constexpr int32_t version_of_index_file = 2;

int32_t check_version(int32_t data_handle, int32_t file_number)
{
    const int32_t mode = file_number == data_file_number ? version_of_data_file
                                                         : version_of_index_file;
    int32_t major = 0;
    int32_t minor = 0;
    const int32_t code = tsvernum32(mode, &major, &minor, data_handle, file_number);
    if (code != TS_OK) return code;
    if (major != major_version) return TS_BAD_MAJOR_VERSION;
    if (minor != minor_version) return TS_BAD_MINOR_VERSION;
    return TS_OK;
}

} // namespace

int32_t write_magic(platform::file_handle file, const char (&magic)[magic_bytes],
                    int32_t data_handle, int32_t file_number)
{
    const char mark[mark_bytes] = {version_byte, magic[0], magic[1], magic[2]};
    if (!move_to(file, 0)) return TS_FILE_MARK_WRITE_POSITION;

    held_range range;
    int32_t code = lock_if_needed(range, {file, data_handle, file_number, 0, mark_bytes});
    if (code < 0) return code;

    const int32_t written = write_file(file, mark, mark_bytes);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (written < mark_bytes) return TS_FILE_MARK_WRITE_SHORT;
    return TS_OK;
}

int32_t check_magic(platform::file_handle file, const char (&magic)[magic_bytes],
                    int32_t data_handle, int32_t file_number)
{
    int32_t code = check_version(data_handle, file_number);
    if (code != TS_OK) return code;
    if (!move_to(file, version_bytes)) return TS_MAGIC_READ_POSITION;

    held_range range;
    code = lock_if_needed(range, {file, data_handle, file_number, version_bytes, magic_bytes});
    if (code < 0) return code;

    char found[magic_bytes];
    const int32_t bytes = read_file(file, found, magic_bytes);

    code = release_if_placed(range);
    if (code < 0) return code;
    if (bytes != magic_bytes) return TS_MAGIC_READ_SHORT;
    if (std::memcmp(found, magic, magic_bytes) != 0) return TS_BAD_MAGIC;
    return TS_OK;
}

} // namespace tarsil
