// A fresh folder for one test, gone with all that is in it when the object goes.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace tarsil::support {

class temp_folder {
public:
    temp_folder()
    {
        path_ = (std::filesystem::temp_directory_path() / "tarsil32-test-XXXXXX").string();
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder " + path_);
    }
    ~temp_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temp_folder(const temp_folder&) = delete;
    temp_folder& operator=(const temp_folder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// All bytes of a file; none for a file that isn't there.
inline std::string file_bytes(const std::string& name)
{
    std::error_code missing;
    const std::uintmax_t size = std::filesystem::file_size(name, missing);
    std::string bytes(missing ? 0 : size, '\0');
    std::ifstream file(name, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline void set_file_bytes(const std::string& name, const std::string& bytes)
{
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error("can't write " + name);
}

} // namespace tarsil::support
