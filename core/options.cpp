// The option setters. An option takes effect at its next use, also while files are open. The letter
// rules differ on purpose: tsautoup32 refuses a letter it doesn't know, tsdelow32 takes it as no.
#include "core/tables.h"

using namespace tarsil;

int32_t tsautoup32(char letter)
{
    switch (letter) {
    case 'Y':
    case 'y': auto_update = yes; return TS_OK;
    case 'N':
    case 'n': auto_update = no; return TS_OK;
    default: return TS_BAD_AUTO_UPDATE_LETTER;
    }
}

void tsdelow32(char letter) { reuse_deleted = letter == 'y' || letter == 'Y' ? yes : no; }

int32_t tsspdoub32(int32_t precision)
{
    if (precision < 0) return TS_BAD_PRECISION;
    compare_precision = precision;
    return TS_OK;
}
