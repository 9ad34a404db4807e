/* An outside project in C: stores places and reads one back by its name. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <tarsil32.h>

struct place {
    char country[4];
    char name[28];
};

int main(void)
{
    static const struct place places[] = {
        {"IS", "Reykjavik"}, {"CH", "Zurich"}, {"IS", "Akureyri"}};
    const char wanted[28] = "Zurich";
    struct place found;
    key_definition key;
    int32_t data, index, deleted, code = TS_OK;
    size_t i;

    memset(&key, 0, sizeof key);
    key.cursor = 'n';
    key.field_count = 1;
    key.types[0] = 's';
    key.lengths[0] = sizeof places[0].name;
    key.offsets[0] = offsetof(struct place, name);

    if (tsinit32() != TS_STARTED) return 1;
    data = tscrdata32("places.dat", sizeof(struct place), 0, NULL);
    index = tscrind32(data, "places.idx", 1, &key);
    if (data < 0 || index < 0) return 1;
    for (i = 0; i < sizeof places / sizeof places[0] && code == TS_OK; ++i)
        code = tsadd32(data, &places[i], 0, 'n');
    if (code == TS_OK) code = tsgeti32(data, index, 0, wanted, &found, &deleted);
    if (code == TS_OK) printf("%s is in %s\n", found.name, found.country);
    if (code == TS_OK) code = tsclosed32(data);
    tsfree32();
    return code == TS_OK ? 0 : 1;
}
