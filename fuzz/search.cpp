// Gives the search its seeds: they are written into the first folder that the command line names,
// before libFuzzer reads it.
#include "fuzz/target.h"

#include <filesystem>
#include <fstream>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    for (int i = 1; i < *argc; ++i) {
        const std::filesystem::path folder = (*argv)[i];
        if (!std::filesystem::is_directory(folder)) continue;
        int number = 0;
        for (const std::string& seed : tarsil::fuzz::seeds()) {
            std::ofstream file(folder / ("seed-" + std::to_string(number++)), std::ios::binary);
            file.write(seed.data(), static_cast<std::streamsize>(seed.size()));
        }
        break;
    }
    return 0;
}
