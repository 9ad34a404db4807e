// The records that the benchmarks store: ids 0 to count - 1 in random order, the same for every
// engine and every run.
//
// A record is 100 bytes where all are of one length. Where lengths vary it is 60 to 140, so that
// the mean is 100 too; the bytes behind its length are 0 then. Whoever reads a record back makes it
// anew from its id and compares all bytes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

namespace bench {

inline constexpr int32_t fixed_length = 100;

#pragma pack(push, 1)
struct record {
    int32_t id;
    char name[24]; // random letters, 0-terminated
    double amount; // no two alike
    int32_t group; // one of 1000
    char payload[100];
};
#pragma pack(pop)
static_assert(sizeof(record) == 140);

// The numbers 0 to count - 1 in an order that depends on nothing but the two arguments.
inline std::vector<int32_t> shuffled(int32_t count, uint32_t seed)
{
    std::vector<int32_t> numbers(static_cast<size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(seed));
    return numbers;
}

inline int32_t length_of(int32_t id, bool variable)
{
    return variable ? 60 + id % 81 : fixed_length;
}

inline record make_record(int32_t id, bool variable, char fill = 'x')
{
    record made = {};
    uint64_t mix = (static_cast<uint64_t>(id) + 1) * 0x9E3779B97F4A7C15U;
    for (int i = 0; i < 20; ++i) {
        mix ^= mix >> 29;
        mix *= 0xBF58476D1CE4E5B9U;
        made.name[i] = static_cast<char>('a' + (mix >> 40) % 26);
    }
    made.id = id;
    made.amount = static_cast<double>(static_cast<uint32_t>(id) * 2654435761U);
    made.group = static_cast<int32_t>(mix % 1000);
    const size_t head = sizeof made - sizeof made.payload;
    std::memset(made.payload, fill, static_cast<size_t>(length_of(id, variable)) - head);
    return made;
}

} // namespace bench
