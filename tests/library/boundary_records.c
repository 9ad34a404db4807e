/* The records that cross the boundary, as a program in C99 sees them through the public header:
   programs that were compiled before go on working only as long as every part stays in its place.
 */
#include "tarsil32.h"

#include <stddef.h>
#include <stdio.h>

#define PLACE(record, part, place)                         \
    {                                                      \
#record "." #part, offsetof(record, part), (place) \
    }

int main(void)
{
    static const struct {
        const char* what;
        size_t found, expected;
    } places[] = {
        PLACE(field_entry, type, 4),
        PLACE(key_definition, order, 4),
        PLACE(key_definition, field_count, 8),
        PLACE(key_definition, types, 16),
        PLACE(key_definition, lengths, 32),
        PLACE(key_definition, offsets, 96),
        PLACE(key_report, types, 8),
        PLACE(key_report, lengths, 24),
        PLACE(key_report, offsets, 88),
        {"size of field_entry", sizeof(field_entry), 8},
        {"size of key_definition", sizeof(key_definition), 160},
        {"size of key_report", sizeof(key_report), 152},
    };
    int failures = 0;
    size_t i;
    for (i = 0; i < sizeof places / sizeof places[0]; ++i) {
        if (places[i].found == places[i].expected) continue;
        fprintf(stderr, "%s: %lu\n", places[i].what, (unsigned long)places[i].found);
        ++failures;
    }
    return failures;
}
