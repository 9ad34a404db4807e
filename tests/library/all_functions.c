/* Calls every function of the library once, as a program in C sees it: through the public header,
   against the shared library, on real files in the folder it is started in. Each answer is
   compared; the first that is wrong ends the program with its line. */
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

enum { town_bytes = sizeof(town), index_handle = 0, by_number = 0, by_name = 1 };

static town made(int32_t number, const char* name, double height)
{
    town one;
    tsinitbf32(town_bytes, 0, &one);
    one.number = number;
    strncpy(one.name, name, sizeof one.name);
    one.height = height;
    return one;
}

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

static void texts(void)
{
    char buffer[8] = "1234567";
    char text[9];
    tsstrcvt32(text, "a   b  c", 32);
    IS(strcmp(text, "a b c"), 0);
    tsinitbf32(5, 'x', buffer);
    IS(strcmp(buffer, "xxxxx67"), 0);
}

static void start_and_options(void)
{
    int32_t major = 0;
    int32_t minor = 0;
    IS(tsvernum32(0, &major, &minor, 0, 0), TS_OK);
    IS(major * 100 + minor, 210);
    IS(tsinit32(), TS_STARTED);
    IS(tsautoup32('n'), TS_OK);
    IS(tsspdoub32(6), TS_OK);
    tsdelow32('y');
    IS(check_share_loaded32(), 255);
    IS(tsIsFileThere32("towns"), 0);
}

/* Five towns, of which the second has the number 20, the third 30 and so on. */
static int32_t create_towns(void)
{
    static const char* const names[] = {"Ulm", "Bonn", "Aachen", "Celle", "Bonn"};
    field_entry fields[] = {{0, 'l'}, {12, 's'}, {0, 'd'}};
    field_entry back[3];
    key_definition keys[2] = {{0}};
    int32_t facts[5];
    int32_t d, i, major, minor;
    IS(tscrdata32("towns", town_bytes, 3, fields), 0);
    d = 0;
    IS(fields[0].length + fields[2].length, 12);
    IS(tsfields32(d, back), 3);
    IS(memcmp(back, fields, sizeof back), 0);
    keys[by_number].cursor = keys[by_name].cursor = 'y';
    keys[by_number].order = 2;
    keys[by_number].field_count = keys[by_name].field_count = 1;
    keys[by_number].types[0] = 'l';
    keys[by_name].types[0] = 's';
    keys[by_name].lengths[0] = 12;
    keys[by_name].offsets[0] = offsetof(town, name);
    IS(tscrind32(d, "towns.idx", 2, keys), index_handle);
    IS(keys[by_number].order, 4);
    for (i = 0; i < 5; ++i) {
        const town one = made(10 * (i + 1), names[i], 100.5 * i);
        IS(tsadd32(d, &one, 0, i == 4 ? 'y' : 'n'), TS_OK);
    }
    IS(tsstatd32(d, &facts[0], &facts[1], &facts[2], &facts[3], &facts[4]), TS_OK);
    IS(facts[0] == 5 && facts[1] == 0 && facts[2] == town_bytes && facts[3] == 5 && facts[4] == 3,
       1);
    IS(tsvernum32(2, &major, &minor, d, index_handle), TS_OK);
    IS(tsclosei32(d, index_handle), TS_OK);
    return d;
}

static void read_in_file_order(int32_t d)
{
    town one;
    int32_t deleted, number, length;
    IS(tsgetd32(d, 3, &one, &deleted), TS_OK);
    IS(one.number, 30);
    IS(tsgetnd32(d, &one, &deleted), TS_OK);
    IS(one.number, 40);
    IS(tsgetpd32(d, &one, &deleted), TS_OK);
    IS(one.number, 30);
    IS(tsgetcd32(d, &one, &deleted), TS_OK);
    IS(one.height == 201.0, 1);
    IS(tsrecd32(d, &number, &deleted, &length), TS_OK);
    IS(number == 3 && deleted == 0 && length == town_bytes, 1);
    IS(tsgetfd32(d, &one, &deleted), TS_OK);
    IS(tsgetld32(d, &one, &deleted), TS_OK);
}

static void read_by_key(int32_t d)
{
    char cursors[] = {'Y', 'y'};
    char name[12] = "Bonn";
    char packed[16];
    town one;
    key_report report;
    char cursor;
    int32_t number = 25;
    int32_t deleted, order, bytes;
    IS(tsopeni32(d, "towns.idx", cursors), index_handle);
    IS(cursors[0], 'y');
    IS(tsstati32(d, index_handle, by_name, &order, &bytes, &cursor, &report), TS_OK);
    IS(cursor == 'y' && report.field_count == 1 && report.types[0] == 's', 1);
    IS(bytes, 2 * order * 20 + 8);
    IS(tsgetipp32(d, index_handle, by_number, &number, 1, 0, &one, &deleted), 1);
    IS(one.number, 20);
    IS(tsgeti32(d, index_handle, by_name, name, &one, &deleted), TS_OK);
    IS(one.number, 50); /* of equal names the one stored last */
    IS(tsgetni32(d, index_handle, by_name, &one, &deleted), TS_OK);
    IS(one.number, 20);
    IS(tsgetpi32(d, index_handle, by_name, &one, &deleted), TS_OK);
    IS(tsgetci32(d, index_handle, by_name, &one, &deleted), TS_OK);
    IS(one.number, 50);
    IS(tsgetip32(d, index_handle, by_name, "Ce", 1, 2, &one, &deleted), TS_OK);
    IS(one.number, 40);
    IS(tsgetfi32(d, index_handle, by_name, &one, &deleted), TS_OK);
    IS(strcmp(one.name, "Aachen"), 0);
    IS(tssetd2i32(d, index_handle, by_name, &number), TS_OK);
    IS(number, 3);
    IS(tsgetli32(d, index_handle, by_number, &one, &deleted), TS_OK);
    IS(tsseti2d32(d, index_handle, by_number, &one, packed, &number), TS_OK);
    IS(number, 3);
    IS(memcmp(packed, &one.number, 4), 0);
}

static void delete_and_undelete(int32_t d)
{
    int32_t number = 40;
    town one;
    int32_t deleted;
    IS(tsdeld32(d, 2), TS_OK);
    IS(tsundeld32(d, 2), TS_OK);
    IS(tsdelcd32(d), TS_OK);
    IS(tsudelcd32(d), TS_OK);
    IS(tsdeli32(d, index_handle, by_number, &number), TS_OK);
    IS(tsgetci32(d, index_handle, by_number, &one, &deleted), TS_OK);
    IS(one.number == 40 && deleted == 1, 1);
    IS(tsundeli32(d, index_handle, by_number, &number), TS_OK);
    IS(tsdelci32(d, index_handle, by_number), TS_OK);
    IS(tsudelci32(d, index_handle, by_number), TS_OK);
}

static void update(int32_t d)
{
    town one = made(20, "Bonn", 60.0);
    town scratch;
    int32_t number = 40;
    int32_t deleted;
    IS(tsupd32(d, 2, &one, 0, &deleted, &scratch, 0), 0);
    IS(scratch.height == 100.5, 1);
    IS(tsupcd32(d, &one, 0, &deleted, &scratch, 0), 0);
    one = made(41, "Celle", 40.0);
    tsdelow32('n');
    IS(tsupi32(d, index_handle, by_number, &number, &one, 0, &deleted, &scratch, 2), 1);
    one.height = 41.0;
    IS(tsupci32(d, index_handle, by_number, &one, 0, &deleted, &scratch, 0), 0);
}

static void purge_and_rebuild(int32_t d)
{
    town one;
    int32_t removed = 0;
    int32_t count, unused;
    FILE* file;
    IS(tspurge32(d, &one, &removed), TS_OK);
    IS(removed, 1);
    IS(tsclosed32(d), TS_OK);
    file = fopen("towns", "r+b");
    IS(file != NULL && fseek(file, 4, SEEK_SET) == 0 && fwrite("\1\0\0\0", 4, 1, file) == 1, 1);
    IS(fclose(file), 0);
    IS(tsrbdbh32("towns", &one), d);
    IS(tsstatd32(d, &count, &unused, &unused, &unused, &unused), TS_OK);
    IS(count, 5);
    IS(tsclosed32(d), TS_OK);
}

static void share(void)
{
    key_definition key = {0};
    town one;
    int32_t d, deleted;
    IS(tsmuser32('y'), TS_OK);
    IS(tsopend32("towns"), 0);
    d = 0;
    key.cursor = 'n';
    key.field_count = 1;
    key.types[0] = 'd';
    key.offsets[0] = offsetof(town, height);
    IS(tscrindd32(d, "heights.idx", 1, &key, &one), 0);
    IS(tsgetli32(d, 0, 0, &one, &deleted), TS_OK);
    IS(one.height == 402.0, 1);
    IS(tslockd32(d), 1);
    IS(tsulockd32(d), TS_OK);
    IS(tslocki32(d, 0), 1);
    IS(tsulocki32(d, 0), TS_OK);
    IS(tslockdr32(d, 2), TS_OK);
    IS(tsulckdr32(d, 2), TS_OK);
    IS(tslockdr32(d, 1), TS_OK);
    IS(tsulalld32(d), 1);
    IS(tsulalli32(d, 0), 0);
    IS(tsclosed32(d), TS_OK);
}

int main(void)
{
    int32_t d;
    boundary_records();
    texts();
    start_and_options();
    d = create_towns();
    read_in_file_order(d);
    read_by_key(d);
    delete_and_undelete(d);
    update(d);
    purge_and_rebuild(d);
    share();
    tsfree32();
    return 0;
}
