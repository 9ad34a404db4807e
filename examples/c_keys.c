// Keys in C: an index file with two keys, searches by a whole value and by the beginning of one,
// and a walk in the order of a key.
//
// A key value is the key's fields back to back, each in its full length: the strings here are
// padded with zeros to the lengths that the key definitions give.
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "tarsil32.h"
#include "tarsil32_text.h"

struct river {
    int32_t length_km;
    char country[4];
    char name[16];
};

enum { by_name, by_length, key_count };

static int32_t must(const char* call, int32_t code)
{
    if (code < 0) fprintf(stderr, "%s: %s\n", call, tarsil32_code_text(code));
    return code;
}

// Key 0: country and name. Key 1: the length. 'y' gives each a cursor, which walks need.
static int32_t create_keys(int32_t data)
{
    key_definition keys[key_count];
    memset(keys, 0, sizeof keys);
    keys[by_name].cursor = 'y';
    keys[by_name].field_count = 2;
    memcpy(keys[by_name].types, "ss", 2);
    keys[by_name].lengths[0] = sizeof((struct river*)0)->country;
    keys[by_name].offsets[0] = offsetof(struct river, country);
    keys[by_name].lengths[1] = sizeof((struct river*)0)->name;
    keys[by_name].offsets[1] = offsetof(struct river, name);
    keys[by_length].cursor = 'y';
    keys[by_length].field_count = 1;
    keys[by_length].types[0] = 'i';
    keys[by_length].offsets[0] = offsetof(struct river, length_km);
    return must("tscrind32", tscrind32(data, "rivers.idx", key_count, keys));
}

static int add_rivers(int32_t data)
{
    static const struct river rivers[] = {{1233, "DE", "Rhein"}, {1094, "DE", "Elbe"},
                                          {452, "DE", "Weser"},  {288, "CH", "Aare"},
                                          {2850, "AT", "Donau"}, {164, "CH", "Reuss"}};
    for (size_t i = 0; i < sizeof rivers / sizeof rivers[0]; ++i)
        if (must("tsadd32", tsadd32(data, &rivers[i], 0, 'n')) < 0) return 0;
    return 1;
}

static void print(const char* how, const struct river* one)
{
    printf("%-12s %.4s %.16s, %d km\n", how, one->country, one->name, (int)one->length_km);
}

static int search(int32_t data, int32_t index)
{
    struct river found;
    int32_t deleted = 0;
    if (must("tsgeti32", tsgeti32(data, index, by_name, "CH\0\0Aare\0\0\0\0\0\0\0\0\0\0\0", &found,
                                  &deleted)) < 0)
        return 0;
    print("whole", &found);

    // The first field, and of the second one the first byte.
    if (must("tsgetip32", tsgetip32(data, index, by_name, "DE\0\0W", 2, 1, &found, &deleted)) < 0)
        return 0;
    print("beginning", &found);

    // Nothing is 1000 km long: the answer 1 says that this is the nearest one below.
    const int32_t wanted = 1000;
    const int32_t how = tsgetipp32(data, index, by_length, &wanted, 1, 0, &found, &deleted);
    if (must("tsgetipp32", how) < 0) return 0;
    print(how == 0 ? "match" : how == 1 ? "nearest" : "first", &found);
    return 1;
}

static int walk_by_length(int32_t data, int32_t index)
{
    struct river one;
    int32_t deleted = 0;
    int32_t code = tsgetli32(data, index, by_length, &one, &deleted);
    for (; code == TS_OK; code = tsgetpi32(data, index, by_length, &one, &deleted))
        print("walk", &one);
    return code == TS_PREVIOUS_ENTRY_AT_START || must("tsgetpi32", code) >= 0;
}

int main(void)
{
    if (must("tsinit32", tsinit32()) < 0) return 1;
    const int32_t data = must("tscrdata32",
                              tscrdata32("rivers.dat", sizeof(struct river), 0, NULL));
    if (data < 0) return 1;
    const int32_t index = create_keys(data);
    if (index < 0 || !add_rivers(data) || !search(data, index) || !walk_by_length(data, index))
        return 1;
    if (must("tsclosed32", tsclosed32(data)) < 0) return 1;
    tsfree32();
    return 0;
}
