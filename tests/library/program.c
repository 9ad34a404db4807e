/* The library as a program in C sees it: through the public header, against the shared library, on
   real files in the folder it is started in. The records of the boundary lie as documented, and a
   short life goes well, with what neither the C++ face nor an example has a use for: they call all
   other functions, and the face's tests ask for their answers. */
#include "tarsil32.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

static void is(long found, long expected, int line)
{
    if (found == expected) return;
    fprintf(stderr, "line %d: %ld, not %ld\n", line, found, expected);
    exit(1);
}
#define IS(found, expected) is((long)(found), (long)(expected), __LINE__)

static void boundary_records(void)
{
    IS(offsetof(field_entry, type), 4);
    IS(offsetof(key_definition, order), 4);
    IS(offsetof(key_definition, field_count), 8);
    IS(offsetof(key_definition, types), 16);
    IS(offsetof(key_definition, lengths), 32);
    IS(offsetof(key_definition, offsets), 96);
    IS(offsetof(key_report, types), 8);
    IS(offsetof(key_report, lengths), 24);
    IS(offsetof(key_report, offsets), 88);
}

static void short_life(void)
{
    char record[8];
    key_definition key = {0};
    IS(tsinit32(), TS_STARTED);
    IS(check_share_loaded32(), 255);
    IS(tsmuser32('y'), TS_OK);
    IS(tscrdata32("towns", sizeof record, 0, NULL), 0);
    key.cursor = 'n';
    key.field_count = 1;
    key.types[0] = 'd';
    IS(tscrind32(0, "towns.idx", 1, &key), 0);
    IS(key.lengths[0], sizeof record);
    tsinitbf32(sizeof record, 'x', record);
    IS(record[0] + record[7], 2 * 'x');
    IS(tsadd32(0, record, 0, 'n'), TS_OK);
    IS(tslockdr32(0, 1), TS_OK);
    IS(tslocki32(0, 0), 1);
    IS(tsulalld32(0), 1);
    IS(tsulalli32(0, 0), 1);
    IS(tsclosed32(0), TS_OK);
    tsfree32();
}

int main(void)
{
    boundary_records();
    short_life();
    return 0;
}
