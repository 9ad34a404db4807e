// What the tool's `salvage` does with files of any content: guessing what the file was, and looking
// for its records; and the checker, which looks first. Every record found lies in the file and
// behind the one before it.
#include "check/data_check.h"
#include "fuzz/target.h"
#include "tests/support/file_parts.h"
#include "tool/damaged_file.h"

namespace tarsil::fuzz {
namespace {

using namespace support;

std::string file_of(int32_t record_length, int32_t records)
{
    std::string frames;
    for (int32_t i = 0; i < records; ++i) {
        const int32_t length = record_length > 0 ? record_length : 5 + i;
        const auto bytes = static_cast<size_t>(length);
        frames += frame(std::string(bytes, static_cast<char>('a' + i)), i % 3 == 0 ? 'd' : ' ');
    }
    const auto end = static_cast<int64_t>(28 + 8 + frames.size());
    return with(support::data_file(records, (records + 2) / 3, record_length, end), 20, 8) +
           i32(4) + i32('i') + frames;
}

} // namespace

// The first byte chooses what the user knows.
std::vector<std::string> seeds()
{
    return {'\0' + file_of(12, 9), '\1' + file_of(TS_VARIABLE_LENGTH, 9), '\2' + file_of(30, 4),
            '\3' + file_of(7, 20).substr(40)};
}

} // namespace tarsil::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    using namespace tarsil;
    using fuzz::require;
    if (count == 0) return 0;
    check::file_bytes file(check::byte_span(bytes + 1, count - 1));
    tool::known_facts known;
    if ((bytes[0] & 1) != 0) known.record_length = (bytes[0] & 2) != 0 ? 12 : TS_VARIABLE_LENGTH;
    if ((bytes[0] & 4) != 0) known.first = bytes[0] >> 3;

    const tool::answer<tool::guessed_file> guess = tool::guess_file(file, known);
    if (!guess) return 0;
    for (const bool with_doubtful : {false, true}) {
        tool::scan_shape shape = (*guess).shape;
        shape.with_doubtful = with_doubtful;
        tool::frame_scanner scanner(file, shape);
        int64_t end = shape.first;
        for (tool::found_record one; scanner.next(one);) {
            require(one.offset >= end, "records come one behind the other");
            require(one.length >= 1, "records have bytes");
            end = one.offset + frame_bytes + one.length;
            require(end <= file.size(), "records lie in the file");
        }
    }
    check::check_data_file(file);
    return 0;
}
