/* tool_hold MODE FILE [FIRST BYTES]...: another process on a file, for the transcripts, until it is
 * killed.
 *
 *   open     has the data file open in multi-user mode
 *   lock     holds the whole of it in multi-user mode
 *   alone    has it open in single-user mode
 *   ranges   holds ranges of any file
 *   add      adds a record of 7F bytes alone, and ends
 *
 * Says "ready" when it has what it wants. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "tarsil32.h"

static int hold_ranges(const char* name, char** words)
{
    const int file = open(name, O_RDWR);
    for (; words[0] != NULL && words[1] != NULL; words += 2) {
        struct flock range = {.l_type = F_WRLCK};
        range.l_start = atol(words[0]);
        range.l_len = atol(words[1]);
        if (fcntl(file, F_OFD_SETLK, &range) != 0) return 0;
    }
    return file >= 0;
}

static int hold_data_file(const char* mode, const char* name)
{
    const char letter = strcmp(mode, "alone") == 0 ? 'n' : 'y';
    if (tsinit32() != TS_STARTED || tsmuser32(letter) != TS_OK) return 0;
    const int32_t data = tsopend32(name);
    return data >= 0 && (strcmp(mode, "lock") != 0 || tslockd32(data) >= 0);
}

static int add_record(const char* name)
{
    char record[64];
    tsinitbf32(sizeof record, 0x7F, record);
    if (tsinit32() != TS_STARTED || tsopend32(name) != 0) return 2;
    return tsadd32(0, record, 0, 'y') == TS_OK && tsclosed32(0) == TS_OK ? 0 : 1;
}

int main(int count, char** words)
{
    if (count < 3) return 2;
    if (strcmp(words[1], "add") == 0) return add_record(words[2]);
    const int has_ranges = strcmp(words[1], "ranges") == 0;
    if (!(has_ranges ? hold_ranges(words[2], words + 3) : hold_data_file(words[1], words[2])))
        return 2;
    printf("ready\n");
    fflush(stdout);
    pause();
    return 0;
}
