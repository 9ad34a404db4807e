// The worked example of docs/FILE_FORMATS.md: the files that it shows are made here by the public
// functions, dumped in the same form, and compared with what stands in the document.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "tarsil32.h"
#include "tests/support/temp_folder.h"

namespace {

using tarsil::support::file_bytes;
using tarsil::support::temp_folder;

constexpr size_t line_bytes = 16;

std::string dump_line(const std::string& bytes, size_t offset)
{
    char text[32];
    std::snprintf(text, sizeof text, "%08zx ", offset);
    std::string hex = text;
    std::string letters;
    for (size_t i = 0; i < line_bytes; ++i) {
        const bool is_there = offset + i < bytes.size();
        const auto byte = static_cast<unsigned char>(is_there ? bytes[offset + i] : 0);
        std::snprintf(text, sizeof text, "%s%02x", i == line_bytes / 2 ? "  " : " ", byte);
        hex += is_there ? text : std::string(std::strlen(text), ' ');
        if (is_there) letters += byte < 0x80 && std::isprint(byte) ? static_cast<char>(byte) : '.';
    }
    return hex + "  |" + letters + "|\n";
}

// Sixteen bytes a line; * for lines that repeat the one above.
std::string dump(const std::string& bytes)
{
    std::string all;
    bool repeats = false;
    for (size_t offset = 0; offset < bytes.size(); offset += line_bytes) {
        const bool repeated = offset > 0 && offset + line_bytes < bytes.size() &&
                              bytes.compare(offset, line_bytes, bytes, offset - line_bytes,
                                            line_bytes) == 0;
        if (!repeated) all += dump_line(bytes, offset);
        if (repeated && !repeats) all += "*\n";
        repeats = repeated;
    }
    return all;
}

// The block that the document fences as ```text NAME.
std::string block_of_document(const std::string& name)
{
    const std::string document = file_bytes(TARSIL32_FILE_FORMATS);
    const std::string fence = "```text " + name + "\n";
    const size_t begin = document.find(fence);
    if (begin == std::string::npos) return "no block " + name;
    const size_t first = begin + fence.size();
    return document.substr(first, document.find("```\n", first) - first);
}

struct tree_record {
    char name[4];
    int16_t number;
};
static_assert(sizeof(tree_record) == 6);

class format_dump : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tsinit32(), TS_STARTED); }
    void TearDown() override { tsfree32(); }

    temp_folder folder;
};

TEST_F(format_dump, files_of_fixed_length_and_index)
{
    field_entry fields[] = {{4, 's'}, {0, 'h'}};
    const std::string data_name = folder.file("trees.dat");
    const int32_t data = tscrdata32(data_name.c_str(), sizeof(tree_record), 2, fields);
    ASSERT_GE(data, 0);

    key_definition key = {};
    key.cursor = 'n';
    key.order = 2;
    key.field_count = 2;
    std::memcpy(key.types, "sh", 2);
    key.lengths[0] = 4;
    key.offsets[1] = 4;
    const std::string index_name = folder.file("trees.idx");
    ASSERT_GE(tscrind32(data, index_name.c_str(), 1, &key), 0);

    const tree_record records[] = {{"oak", 12}, {"elm", -3}, {"ash", 7}, {"fir", 40}, {"elm", -3}};
    for (const tree_record& record : records)
        ASSERT_EQ(tsadd32(data, &record, sizeof record, 'y'), TS_OK);
    ASSERT_EQ(tsdeld32(data, 4), TS_OK);
    ASSERT_EQ(tsclosed32(data), TS_OK);

    EXPECT_EQ(dump(file_bytes(data_name)), block_of_document("trees.dat"));
    EXPECT_EQ(dump(file_bytes(index_name)), block_of_document("trees.idx"));
}

TEST_F(format_dump, file_of_variable_length)
{
    const std::string name = folder.file("notes.dat");
    const int32_t data = tscrdata32(name.c_str(), TS_VARIABLE_LENGTH, 0, nullptr);
    ASSERT_GE(data, 0);
    ASSERT_EQ(tsadd32(data, "Hello", 5, 'n'), TS_OK);
    ASSERT_EQ(tsadd32(data, "ok", 2, 'n'), TS_OK);
    ASSERT_EQ(tsclosed32(data), TS_OK);

    EXPECT_EQ(dump(file_bytes(name)), block_of_document("notes.dat"));
}

} // namespace
