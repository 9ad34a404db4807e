// The text services, which need no start of the library and touch nothing but the buffers given.
#include "tarsil32.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(Text, StepsByFlag)
{
    const struct {
        int32_t flags;
        const char *source, *result;
    } rows[] = {
        {0, " aB1 ", " aB1 "},
        {1, " a b ", "ab"},
        {1, "\ta b", "\tab"},
        {2, "a1-b", "ab"},
        {2, "a1 \xE4Z[`{@", "a Z"},
        {4, "a1 2/:", "1 2"},
        {4, "\xE4", ""},
        {6, "a1 b2", " "},
        {3, " a 1 B", "aB"},
        {5, " a 1 2", "12"},
        {8, "  a b ", "a b "},
        {8, "   ", ""},
        {8, "", ""},
        {16, " a b  ", " a b"},
        {16, "  ", ""},
        {24, " a b ", "a b"},
        {32, "a   b  c d", "a b c d"},
        {32, "  a  ", " a "},
        {36, "1 a 2", "1 2"},
        {56, "  a   b  ", "a b"},
        {64, "", ""},
        {64, "azAZ`{1\xE4", "AZAZ`{1\xE4"},
        {128, "azAZ@[1\xE4", "azaz@[1\xE4"},
        {192, "aB1", "ab1"},
        {1 + 8 + 16 + 32 + 64 + 128, " \xE4 x", "\xE4x"},
        {255, "a 1", ""},
        {255, "", ""},
        {256, "a 1", ""},
        {0x7fffffff, "a 1", ""},
        {-1, " a ", " a "},
        {INT32_MIN, " a ", " a "},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::to_string(r.flags) + " on '" + r.source + "'");
        std::vector<char> destination(std::string(r.source).size() + 1, '#');
        tsstrcvt32(destination.data(), r.source, r.flags);
        EXPECT_STREQ(destination.data(), r.result);
        // What stands around the text isn't touched, and no blank in front of it counts.
        std::string in_place = ' ' + (r.source + std::string("\0xX", 3));
        tsstrcvt32(in_place.data() + 1, in_place.data() + 1, r.flags);
        EXPECT_STREQ(in_place.c_str() + 1, r.result);
        EXPECT_TRUE(in_place.starts_with(" ") && in_place.ends_with("xX"));
    }
}

TEST(Text, FillsExactlyTheLength)
{
    for (const int32_t length : {INT32_MIN, -1, 0, 1, 3, 4, 5, 9}) {
        std::string buffer(10, '.');
        tsinitbf32(length, '\xE4', buffer.data());
        const size_t filled = length > 0 ? static_cast<size_t>(length) : 0;
        EXPECT_EQ(buffer, std::string(filled, '\xE4') + std::string(10 - filled, '.'));
    }
}

} // namespace
