// Start and stop of the library.
//
// Loading the library runs nothing; all begins with tsinit32. Neither function looks at what is
// open: a caller closes its files first, and tsinit32 called in between simply forgets them.
#include "core/tables.h"
#include "index/index_format.h"

using namespace tarsil;

int32_t tsinit32()
{
    for (data_slot& slot : data_slots) slot.status = slot_free;
    node_scratch = nullptr;
    scratch_bytes = 0;

    path_stack = static_cast<int32_t*>(platform::LocalAlloc(path_words * sizeof(int32_t)));
    if (path_stack == nullptr) return TS_NO_MEMORY_PATH;

    key_scratch = static_cast<unsigned char*>(platform::LocalAlloc(max_packed_key_bytes));
    if (key_scratch == nullptr) {
        platform::LocalFree(path_stack);
        path_stack = nullptr;
        return TS_NO_MEMORY_KEY;
    }

    multi_user = no;
    auto_update = no;
    reuse_deleted = no;
    lock_table = nullptr;
    compare_precision = default_precision;
    return TS_STARTED;
}

namespace {

template <class block> void free_and_forget(block*& buffer)
{
    platform::LocalFree(buffer);
    buffer = nullptr;
}

} // namespace

void tsfree32()
{
    free_and_forget(path_stack);
    free_and_forget(key_scratch);
    free_and_forget(node_scratch);
    free_and_forget(shared_node);
    free_and_forget(lock_table);
}
