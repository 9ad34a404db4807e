/* tool_hold MODE DATA [SECONDS]: another process on a data file, for the transcripts.
 *
 *   open     has it open in multi-user mode
 *   lock     holds the whole of it in multi-user mode
 *   alone    has it open in single-user mode
 *
 * Says "ready" when it has what it wants, and gives it back after so many seconds (60) or when it
 * is killed. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "tarsil32.h"

int main(int count, char** words)
{
    if (count < 3) return 2;
    const char letter = strcmp(words[1], "alone") == 0 ? 'n' : 'y';
    if (tsinit32() != TS_STARTED || tsmuser32(letter) != TS_OK) return 2;
    const int32_t data = tsopend32(words[2]);
    if (data < 0) return 2;
    if (strcmp(words[1], "lock") == 0 && tslockd32(data) < 0) return 2;
    printf("ready\n");
    fflush(stdout);
    usleep((useconds_t)(1000000 * (count > 3 ? atof(words[3]) : 60.0)));
    return tsclosed32(data) == TS_OK ? 0 : 1;
}
