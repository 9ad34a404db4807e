// The text services: tsstrcvt32 brings a text into a normal form, for building key values;
// tsinitbf32 fills a buffer.
//
// Both work on bytes and know no locale: a byte of 0x80 or above is no letter, digit or space,
// whatever it stands for. They keep no state, allocate nothing and need no tsinit32. The steps run
// in one fixed order, each on what those before it have left, which decides how flags work
// together.
#include <cstring>

#include "tarsil32.h"

namespace {

// Weights of the steps, in the order in which they run.
constexpr int32_t remove_spaces = 1;
constexpr int32_t keep_letters_and_spaces = 2;
constexpr int32_t keep_digits_and_spaces = 4;
constexpr int32_t trim_start = 8;
constexpr int32_t trim_end = 16;
constexpr int32_t shrink_runs = 32;
constexpr int32_t to_capitals = 64;
constexpr int32_t to_small = 128;
constexpr int32_t all_steps = 255;

constexpr char space = ' ';
constexpr char case_distance = 'a' - 'A';

bool is_small(char byte) { return byte >= 'a' && byte <= 'z'; }
bool is_capital(char byte) { return byte >= 'A' && byte <= 'Z'; }
bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// Numbers above the sum of all weights set every step, those below 0 none.
int32_t steps_of(int32_t flags)
{
    if (flags < 0) return 0;
    return flags > all_steps ? all_steps : flags;
}

// May be the same text; hence byte by byte from the first on.
void copy_text(char* destination, const char* source)
{
    while ((*destination++ = *source++) != 0) {}
}

// The steps that take bytes out are one pass with a rule each: does a byte stay behind `before`,
// the last one that stayed (0 for none)?
bool stays(int32_t step, char byte, char before)
{
    switch (step) {
    case remove_spaces: return byte != space;
    case keep_letters_and_spaces: return is_small(byte) || is_capital(byte) || byte == space;
    case keep_digits_and_spaces: return is_digit(byte) || byte == space;
    case trim_start: return byte != space || before != 0;
    case shrink_runs: return byte != space || before != space;
    default: return true;
    }
}

void sift(char* text, int32_t step)
{
    char* end = text;
    for (const char* from = text; *from != 0; ++from) {
        const char before = end == text ? char{0} : end[-1];
        if (stays(step, *from, before)) *end++ = *from;
    }
    *end = 0;
}

void trim_end_of(char* text)
{
    size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == space) --length;
    text[length] = 0;
}

void change_case(char* text, int32_t step)
{
    for (; *text != 0; ++text) {
        if (step == to_capitals && is_small(*text))
            *text = static_cast<char>(*text - case_distance);
        if (step == to_small && is_capital(*text)) *text = static_cast<char>(*text + case_distance);
    }
}

void run_step(char* text, int32_t step)
{
    switch (step) {
    case trim_end: trim_end_of(text); break;
    case to_capitals:
    case to_small: change_case(text, step); break;
    default: sift(text, step); break;
    }
}

} // namespace

void tsstrcvt32(char* destination, const char* source, int32_t flags)
{
    const int32_t steps = steps_of(flags);
    copy_text(destination, source);
    for (int32_t step = remove_spaces; step <= to_small; step *= 2) {
        if ((steps & step) != 0) run_step(destination, step);
    }
}

void tsinitbf32(int32_t length, char fill, void* buffer)
{
    if (length > 0) std::memset(buffer, fill, static_cast<size_t>(length));
}
