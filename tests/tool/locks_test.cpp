// tarsil locks: another process holds ranges by the library, and they are told by their meaning.
#include "tests/support/child_process.h"
#include "tests/tool/trees.h"

#include <fcntl.h>

#include "tarsil32.h"

namespace tarsil::tests {

namespace {

using locks = trees;

TEST_F(locks, RangesHaveMeaningsAndProcessesHaveNumbers)
{
    make_trees(20);
    const std::string data = folder.file("trees.dat");
    const std::string index = folder.file("trees.idx");
    const auto hold = [&](int64_t first, int64_t count) {
        struct flock range = {};
        range.l_type = F_WRLCK;
        range.l_start = first;
        range.l_len = count;
        const int descriptor = open(data.c_str(), O_RDWR | O_CLOEXEC);
        return descriptor >= 0 && fcntl(descriptor, F_OFD_SETLK, &range) == 0;
    };
    support::child_process other([&](const support::child_line& line) {
        tsinit32();
        tsmuser32('y');
        char cursors[] = "yy";
        line.step([&] { return tsopend32(data.c_str()); });
        line.step([&] { return tsopeni32(0, index.c_str(), cursors); });
        line.step([&] { return tslockdr32(0, 7); });
        line.step([&] { return tsulckdr32(0, 7) + tslockd32(0) + tslocki32(0, 0); });
        line.step([&] { return tsulalld32(0) + tsulalli32(0, 0); });
        line.step([&] { return hold(4, 24) && hold(frame_of(3), 8) && hold(frame_of(5) + 8, 32); });
        line.step([&] { return hold(frame_of(11), 3 * stride) && hold(frame_of(21), stride); });
        line.step([] { return 0; }); // It lives on for the last look.
    });
    const auto shown = [&] { return must("tarsil locks trees.dat trees.idx"); };
    const auto tells = [](const std::string& text, const std::string& what) {
        return text.find(what) != text.npos;
    };
    EXPECT_TRUE(tells(shown(), "nobody has these files open"));
    ASSERT_EQ(other.next(), 0);
    ASSERT_EQ(other.next(), 0);
    std::string text = shown();
    EXPECT_TRUE(tells(text, std::to_string(other.id())) && tells(text, "shared")) << text;
    ASSERT_EQ(other.next(), 0);
    text = shown();
    EXPECT_TRUE(tells(text, " record 7 ")) << text;
    ASSERT_EQ(other.next(), 2);
    text = shown();
    EXPECT_TRUE(tells(text, "the whole file")) << text;
    const std::string json = must("tarsil locks --json trees.idx");
    EXPECT_TRUE(tells(json, "\"meaning\": \"the whole file\"") &&
                tells(json, "\"last\": 2147483646"))
        << json;
    ASSERT_EQ(other.next(), 2);
    ASSERT_EQ(other.next(), 1);
    ASSERT_EQ(other.next(), 1);
    text = shown();
    for (const char* const meaning : {"header ", "frame of record 3 ", "body of record 5 ",
                                      "records 11 to 13 ", "record 21, being added"})
        EXPECT_TRUE(tells(text, meaning)) << meaning << "\n" << text;
}

TEST_F(locks, FilesThatArentThereAreRefusedAndOthersShown)
{
    write("foreign", "text");
    EXPECT_NE(must("tarsil locks foreign").find("nobody"), std::string::npos);
    const typed refused = type("tarsil locks nowhere.dat");
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(is_one_line(refused.err)) << refused.err;
}

} // namespace

} // namespace tarsil::tests
