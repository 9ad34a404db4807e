// The one instance of each process-wide value. All of it is zero until tsinit32.
#include "core/tables.h"

namespace tarsil {

data_slot data_slots[TS_MAX_DATA_FILES];

unsigned char* node_scratch;
unsigned char* shared_node;
int32_t* path_stack;
unsigned char* key_scratch;
int32_t scratch_bytes;
char reuse_deleted;
int32_t compare_precision;
char auto_update;
char multi_user;
int32_t lock_position;
lock_entry* lock_table;

} // namespace tarsil
