/* The library as a program in C sees it: through the public header, against the shared library, on
   real files in the folder it is started in. The records of the boundary lie as documented, and a
   short life goes well, with what the C++ face has no use for: that calls all other functions, and
   its tests ask for their answers. */
#include "tarsil32.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void is(long found, long expected, int line)
{
    if (found == expected) return;
    fprintf(stderr, "line %d: %ld, not %ld\n", line, found, expected);
    exit(1);
}
#define IS(found, expected) is((long)(found), (long)(expected), __LINE__)

typedef struct town {
    int32_t number;
    char name[12];
    double height;
} town;

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

/* Three towns, under a key of their names. */
static void create_towns(void)
{
    static const char* const names[] = {"Ulm", "Bonn", "Aachen"};
    field_entry fields[] = {{0, 'l'}, {12, 's'}, {0, 'd'}};
    key_definition key = {0};
    town one;
    int32_t i;
    IS(tscrdata32("towns", sizeof one, 3, fields), 0);
    IS(fields[0].length + fields[2].length, 12);
    key.cursor = 'y';
    key.order = 2;
    key.field_count = 1;
    key.types[0] = 's';
    key.lengths[0] = 12;
    key.offsets[0] = offsetof(town, name);
    IS(tscrind32(0, "towns.idx", 1, &key), 0);
    IS(key.order, 4);
    for (i = 0; i < 3; ++i) {
        tsinitbf32(sizeof one, 0, &one);
        one.number = i + 1;
        one.height = 100.5 * i;
        strncpy(one.name, names[i], sizeof one.name - 1);
        IS(tsadd32(0, &one, 0, 'n'), TS_OK);
    }
}

static void read_and_change(void)
{
    char name[12] = "Bonn";
    town one, scratch;
    key_report report;
    char cursor;
    int32_t deleted, order, bytes;
    IS(tsstati32(0, 0, 0, &order, &bytes, &cursor, &report), TS_OK);
    IS(cursor == 'y' && report.field_count == 1 && report.types[0] == 's', 1);
    IS(report.lengths[0] == 12 && report.offsets[0] == offsetof(town, name), 1);
    IS(tsgeti32(0, 0, 0, name, &one, &deleted), TS_OK);
    IS(one.number == 2 && one.height == 100.5 && deleted == 0, 1);
    one.height = 60.0;
    IS(tsupci32(0, 0, 0, &one, 0, &deleted, &scratch, 0), 0);
    IS(tsgetipp32(0, 0, 0, "Berlin", 1, 12, &one, &deleted), 1);
    IS(strcmp(one.name, "Aachen"), 0);
    IS(tsclosed32(0), TS_OK);
}

static void share(void)
{
    IS(check_share_loaded32(), 255);
    IS(tsmuser32('y'), TS_OK);
    IS(tsopend32("towns"), 0);
    IS(tsopeni32(0, "towns.idx", &(char){'n'}), 0);
    IS(tslockdr32(0, 1), TS_OK);
    IS(tslocki32(0, 0), 1);
    IS(tsulalld32(0), 1);
    IS(tsulalli32(0, 0), 1);
    IS(tsclosed32(0), TS_OK);
}

int main(void)
{
    boundary_records();
    IS(tsinit32(), TS_STARTED);
    create_towns();
    read_and_change();
    share();
    tsfree32();
    return 0;
}
