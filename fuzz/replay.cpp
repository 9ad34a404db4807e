// Takes the seeds of a target, and the inputs in the files that are named, without a search.
#include "fuzz/target.h"

#include <fstream>
#include <iterator>

namespace {

void take(const std::string& input)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> seeds = tarsil::fuzz::seeds();
    for (const std::string& seed : seeds) {
        take(seed);
        // A search begins like this: parts of a seed, and a byte of it changed.
        for (size_t i = 0; i < seed.size(); i += 1 + seed.size() / 50) {
            std::string changed = seed;
            changed[i] = static_cast<char>(changed[i] ^ 0x55);
            take(changed);
            take(seed.substr(0, i));
        }
    }
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        tarsil::fuzz::require(file.is_open(), std::string("cannot open ") + argv[i]);
        take({std::istreambuf_iterator<char>(file), {}});
    }
    std::printf("%zu seeds, %d cases\n", seeds.size(), argc - 1);
    return seeds.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
