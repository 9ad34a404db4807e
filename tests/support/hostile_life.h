// A program's life with files of any content, on the simulated platform: what the tests of damage
// and the fuzz targets have behind the bytes they make up.
//
// The program is one that keeps to the rules of include/tarsil32.h and to no others: it takes the
// room that a record needs from what the library tells, never from the files, and gives every
// buffer exactly that many bytes, so that the sanitizers see each byte too many.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tarsil::support {

struct hostile_files {
    std::string data;
    std::string index;
};

// A sound pair, of some dozens of records, some of them deleted, and two keys whose trees are three
// levels high. record_length as in tscrdata32, 12 bytes or more.
hostile_files sound_files(int32_t record_length);

// A script is a byte for the surroundings and then three for each call: which one, and two
// arguments. At most this many calls are made.
inline constexpr size_t script_calls = 64;
enum surroundings : uint8_t {
    in_shared_mode = 1,
    in_write_through = 2,
    with_reuse = 4,
    without_looks = 8 // of the platform at its files: all goes by reads
};

// Calls that change no file have the lower numbers.
extern const size_t reading_calls;
extern const size_t all_calls;

// Opens the files and makes the calls. Returns what was broken of the promises that hold whatever
// the files contain, or nothing: every answer is a code of the catalogue; no call takes more than a
// bounded number of platform calls; a file that isn't accepted isn't changed, and neither is one
// that was only read; in the end no range, no open file and no memory is left.
std::string live_with(const hostile_files& files, std::span<const uint8_t> script);

} // namespace tarsil::support
