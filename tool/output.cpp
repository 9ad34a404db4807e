// Bytes, facts and the end of a command's output. Tables stand in tool/tables.cpp.
#include "tool/output.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace tarsil::tool {

byte_sink::byte_sink(byte_sink&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)), name_(std::move(other.name_)),
      buffer_(std::move(other.buffer_)), error_(other.error_)
{
}

byte_sink::~byte_sink() { (void)close(); }

answer<byte_sink> byte_sink::create(const std::string& name, const std::string& told)
{
    const std::string& shown = told.empty() ? name : told;
    const int descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0 && errno == EEXIST)
        return failure{shown + ": exists already", "choose another name, or remove it first"};
    if (descriptor < 0)
        return failure{shown + ": can't be made: " + std::strerror(errno),
                       "check the folder and its permissions"};
    byte_sink made(fdopen(descriptor, "wb"));
    made.name_ = shown;
    return made;
}

void byte_sink::flush()
{
    if (file_ != nullptr && error_ == 0 && !buffer_.empty()) {
        const size_t written = std::fwrite(buffer_.data(), 1, buffer_.size(), file_);
        if (written != buffer_.size() || std::fflush(file_) != 0) error_ = errno != 0 ? errno : EIO;
    }
    buffer_.clear();
}

outcome byte_sink::close()
{
    if (file_ == nullptr) return {};
    flush();
    if (file_ == stdout) return {};
    if (std::fclose(std::exchange(file_, nullptr)) != 0 && error_ == 0) error_ = errno;
    if (error_ == 0) return {};
    return failure{name_ + ": can't be written: " + std::strerror(error_),
                   "give it room, and start anew"};
}

byte_sink& standard_output()
{
    static byte_sink only(stdout);
    return only;
}

int finish_output(int status)
{
    byte_sink& output = standard_output();
    output.flush();
    if (!output.failed()) return status;
    if (output.error() == EPIPE) {
        note("the reader of the output has closed it; the rest was not written");
        return status == exit_failed ? exit_failed : exit_partly;
    }
    return fail({fmt::format("the output can't be written: {}", std::strerror(output.error())),
                 "give it room and start anew"});
}

void put_json(const json& facts) { standard_output().put(facts.dump() + "\n"); }

std::string counted(int64_t number, std::string_view noun)
{
    return fmt::format("{} {}{}", grouped(number), noun, number == 1 ? "" : "s");
}

std::string grouped(int64_t number)
{
    const std::string digits = std::to_string(number);
    std::string made;
    for (size_t i = 0; i < digits.size(); ++i) {
        const size_t behind = digits.size() - i;
        if (behind % 3 == 0 && !made.empty() && made != "-") made += ',';
        made += digits[i];
    }
    return made;
}

} // namespace tarsil::tool
