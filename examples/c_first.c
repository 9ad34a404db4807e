// The first steps in C: a data file is created, three records go in, and all are read back.
//
// Works in the current folder, on a file that it makes itself.
#include <stdio.h>
#include <string.h>

#include "tarsil32.h"
#include "tarsil32_text.h"

// The record as it stands in the file: the field table below says the same.
struct book {
    int32_t year;
    char title[28];
};

// Every call answers with a number below 0 when it fails; its texts are looked up by the number.
static int failed(const char* call, int32_t code)
{
    if (code >= 0) return 0;
    fprintf(stderr, "%s: %s: %s\n", call, tarsil32_code_name(code), tarsil32_code_text(code));
    return 1;
}

static int add_books(int32_t data)
{
    static const struct book books[] = {
        {1851, "Moby-Dick"}, {1818, "Frankenstein"}, {1759, "Candide"}};
    for (size_t i = 0; i < sizeof books / sizeof books[0]; ++i)
        if (failed("tsadd32", tsadd32(data, &books[i], 0, 'y'))) return 0;
    return 1;
}

static int print_books(int32_t data)
{
    struct book one;
    int32_t deleted = 0;
    int32_t code = tsgetfd32(data, &one, &deleted);
    for (; code == TS_OK; code = tsgetnd32(data, &one, &deleted))
        printf("%d  %s%s\n", (int)one.year, one.title, deleted ? "  (deleted)" : "");
    // The walk ends with a code of its own, which is no failure.
    return code == TS_NEXT_RECORD_AT_END || !failed("tsgetnd32", code);
}

int main(void)
{
    field_entry fields[] = {{4, 'i'}, {28, 's'}};
    if (failed("tsinit32", tsinit32())) return 1;
    const int32_t data = tscrdata32("books.dat", sizeof(struct book), 2, fields);
    if (failed("tscrdata32", data)) return 1;

    // A delete marks the record: it can still be read, and be taken back with tsundeld32.
    if (!add_books(data) || failed("tsdeld32", tsdeld32(data, 2)) || !print_books(data)) return 1;

    // The close writes what is still in memory alone.
    if (failed("tsclosed32", tsclosed32(data))) return 1;
    tsfree32();
    return 0;
}
