// Name, cause and remedy of the result codes, for programs in C99 and C++.
//
// The texts come from TARSIL32_CODES, the one table of codes, so that a program, the manual and the
// command-line tool say the same words. They are compiled into the program that includes this file:
// the shared library holds no text. The answers are constants that nobody frees. TS_OK and every
// number above it have an answer too; a negative number that is no code of the library is told to
// be that.
#ifndef TARSIL32_TEXT_H
#define TARSIL32_TEXT_H

#include <stdint.h>

#include "tarsil32.h"

#ifdef __cplusplus
#define TARSIL32_TEXT_FUNCTION inline
#else
#define TARSIL32_TEXT_FUNCTION static inline
#endif

// The code's name, such as "TS_LOCK_REFUSED".
TARSIL32_TEXT_FUNCTION const char* tarsil32_code_name(int32_t code)
{
    if (code >= 0) return "TS_OK";
    switch (code) {
#define TARSIL32_NAME_CASE(name, number, cause, remedy) \
    case number: return #name;
        TARSIL32_CODES(TARSIL32_NAME_CASE)
#undef TARSIL32_NAME_CASE
    default: return "unknown";
    }
}

// What the code says: the cause of the refusal.
TARSIL32_TEXT_FUNCTION const char* tarsil32_code_text(int32_t code)
{
    if (code >= 0) return "Success";
    switch (code) {
#define TARSIL32_TEXT_CASE(name, number, cause, remedy) \
    case number: return cause;
        TARSIL32_CODES(TARSIL32_TEXT_CASE)
#undef TARSIL32_TEXT_CASE
    default: return "No result code has this number";
    }
}

// What a caller can do about it.
TARSIL32_TEXT_FUNCTION const char* tarsil32_code_remedy(int32_t code)
{
    if (code >= 0) return "None needed";
    switch (code) {
#define TARSIL32_REMEDY_CASE(name, number, cause, remedy) \
    case number: return remedy;
        TARSIL32_CODES(TARSIL32_REMEDY_CASE)
#undef TARSIL32_REMEDY_CASE
    default: return "The numbers stand in tarsil32_codes.h";
    }
}

#endif
