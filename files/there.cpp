// tsIsFileThere32: can the file be opened at this moment, in the present mode?
//
// It is a test open and not a look at the name. In single-user mode it asks for the file alone, so
// that a file which anybody holds open reads as not there; in multi-user mode it asks to write, so
// that a file which can't be written reads as not there.
#include "core/tables.h"
#include "files/files.h"

using namespace tarsil;

int32_t tsIsFileThere32(const char* name)
{
    const platform::file_handle file = is_shared() ? open_shared_file(name)
                                                   : open_file(name, platform::access::read_only,
                                                               platform::share::none);
    if (file == platform::no_file) return 0;
    platform::CloseHandle(file);
    return 1;
}
