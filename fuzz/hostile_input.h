// Inputs of the targets for data and index files:
//
//      0        1         2                    2 + 3 * calls
//      +--------+---------+--------------------+-----------------------+
//      | which  | calls   | script             | the file              |
//      +--------+---------+--------------------+-----------------------+
//
// The lowest bit of the first byte chooses between records of fixed and of variable length for the
// sound file beside the one of the input; the others are the surroundings of the script.
#pragma once

#include "fuzz/target.h"
#include "tarsil32.h"
#include "tests/support/hostile_life.h"

#include <algorithm>

namespace tarsil::fuzz {

constexpr size_t input_head = 2;
constexpr int32_t shapes[] = {20, TS_VARIABLE_LENGTH};

inline void live_with_input(const uint8_t* bytes, size_t count, bool fuzzes_index)
{
    static const support::hostile_files sound[] = {support::sound_files(shapes[0]),
                                                   support::sound_files(shapes[1])};
    if (count < input_head) return;
    const size_t calls = std::min<size_t>({bytes[1], support::script_calls, (count - 2) / 3});
    std::vector<uint8_t> script(bytes + 1, bytes + input_head + 3 * calls);
    script[0] = bytes[0] >> 1;

    support::hostile_files files = sound[bytes[0] & 1];
    const uint8_t* const file = bytes + input_head + 3 * calls;
    (fuzzes_index ? files.index : files.data)
        .assign(reinterpret_cast<const char*>(file), count - input_head - 3 * calls);
    const std::string broken = support::live_with(files, script);
    require(broken.empty(), broken);
}

// A sound file behind every call that there is, once each and in the order of the table, in every
// kind of surroundings.
inline std::vector<std::string> hostile_seeds(bool fuzzes_index)
{
    std::vector<std::string> made;
    for (uint8_t which = 0; which < 32; ++which) {
        const support::hostile_files sound = support::sound_files(shapes[which & 1]);
        const size_t calls = std::min(support::all_calls, support::script_calls);
        std::string seed{static_cast<char>(which), static_cast<char>(calls)};
        for (size_t call = 0; call < calls; ++call)
            seed += {static_cast<char>(call), static_cast<char>(call * 7), static_cast<char>(call)};
        made.push_back(seed + (fuzzes_index ? sound.index : sound.data));
    }
    return made;
}

} // namespace tarsil::fuzz
