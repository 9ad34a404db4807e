// The C++ face's values: texts of codes, layouts, key definitions, packed values, single fields,
// and the order by which walks find their end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "tarsil32.hpp"

namespace {

using namespace tarsil;
using testing::ElementsAre;
using testing::HasSubstr;

enum class grade : uint16_t { low, high };

struct sample {
    int32_t signed_word;
    uint32_t unsigned_word;
    int16_t signed_half;
    grade unsigned_half;
    unsigned char byte;
    char letter;
    char text[6];
    float single;
    double number;
};

layout sample_layout()
{
    return layout::of<sample>(
        {TARSIL_FIELD(sample, signed_word), TARSIL_FIELD(sample, unsigned_word),
         TARSIL_FIELD(sample, signed_half), TARSIL_FIELD(sample, unsigned_half),
         TARSIL_FIELD(sample, byte), TARSIL_FIELD(sample, letter), TARSIL_FIELD(sample, text),
         TARSIL_FIELD(sample, single), TARSIL_FIELD(sample, number)});
}

TEST(FaceTexts, EveryCodeHasItsOwnNameAndTexts)
{
#define LOOK(name, number, cause, remedy)                                  \
    EXPECT_THAT(std::string(code_name(number)), testing::EndsWith(#name)); \
    EXPECT_EQ(code_text(number), cause);                                   \
    EXPECT_EQ(code_remedy(number), remedy);
    TARSIL32_CODES(LOOK)
    TARSIL_FACE_CODES(LOOK)
#undef LOOK
    EXPECT_EQ(code_name(-99), "unknown");
    EXPECT_EQ(code_name(1), "TS_OK");
    EXPECT_STREQ(tarsil32_code_name(TS_LOCK_REFUSED), "TS_LOCK_REFUSED");
}

TEST(FaceResult, CarriesAValueOrAReadableError)
{
    const result<int> good = 7;
    result<int> bad = status(TS_LOCK_REFUSED, "a.dat", true);
    EXPECT_TRUE(good);
    EXPECT_EQ(*good, 7);
    EXPECT_FALSE(bad);
    EXPECT_TRUE(bad.half_done());
    EXPECT_EQ(result<int>(bad).value_or(3), 3);
    EXPECT_THAT(bad.message(), testing::AllOf(HasSubstr("TS_LOCK_REFUSED (-204)"),
                                              HasSubstr("[a.dat]"), HasSubstr("changed already")));
    try {
        bad.value_or_throw();
        FAIL() << "no exception";
    } catch (const error& thrown) {
        EXPECT_EQ(thrown.why().code(), TS_LOCK_REFUSED);
        EXPECT_EQ(thrown.what(), bad.message());
    }
    EXPECT_DEATH((void)bad.value(), "no value: TS_LOCK_REFUSED");
}

TEST(FaceLayout, TakesLettersLengthsAndPlacesFromAStruct)
{
    const layout made = sample_layout();
    ASSERT_TRUE(made.state()) << made.state().message();
    std::string letters;
    for (const field& one : made.fields()) letters += one.letter;
    EXPECT_EQ(letters, "iUhHcssfd");
    EXPECT_EQ(made.record_length(), static_cast<int32_t>(sizeof(sample)));
    EXPECT_EQ(made.find("text")->offset, static_cast<int32_t>(offsetof(sample, text)));
    EXPECT_EQ(made.find("text")->length, 6);

    const layout packed = layout::packed({{"a", 'h'}, {"b", 's', 5}, {"c", 'd'}});
    EXPECT_EQ(packed.find("c")->offset, 7);
    EXPECT_EQ(packed.record_length(), 15);
}

TEST(FaceLayout, SaysWhatIsWrongWithItself)
{
    const struct {
        layout made;
        const char* about;
    } cases[] = {
        {layout({{"a", 'x', 4, 0}}, 4), "a: no letter"},
        {layout({{"a", 'i', 8, 0}}, 8), "a: its length"},
        {layout({{"a", 's', 0, 0}}, 8), "a: its length"},
        {layout({{"a", 's', 5, 4}}, 8), "a: outside"},
        {layout({{"a", 's', 5, -1}}, 8), "a: outside"},
        {layout({{"a", 'i', 4, 0}, {"a", 'i', 4, 4}}, 8), "a: twice"},
        {layout::packed({{"a", 's', INT32_MAX}, {"b", 's', INT32_MAX}}), "b: outside"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(one.made.state().code(), face::bad_layout);
        EXPECT_THAT(one.made.key({"a"}).detail(), HasSubstr(one.about));
    }
}

TEST(FaceLayout, MakesKeyDefinitionsByName)
{
    const result<key_definition> made = sample_layout().key({"text", "number"}, cursor::none, 5);
    ASSERT_TRUE(made) << made.message();
    EXPECT_EQ(made->cursor, 'n');
    EXPECT_EQ(made->order, 5U);
    EXPECT_EQ(made->field_count, 2);
    EXPECT_EQ(std::string_view(made->types, 2), "sd");
    EXPECT_EQ(made->lengths[0], 6);
    EXPECT_EQ(made->offsets[1], static_cast<int32_t>(offsetof(sample, number)));

    const layout wide = layout::packed({{"wide", 's', 257}});
    EXPECT_EQ(wide.key({"wide"}).code(), TS_KEY_BAD_STRING_LENGTH);
    EXPECT_EQ(sample_layout().key({"text", "txet"}).message().find("face::no_such_field"), 0U);
    EXPECT_EQ(sample_layout().key({}).code(), TS_KEY_BAD_FIELD_COUNT);
    EXPECT_EQ(sample_layout().key(std::vector<std::string_view>(17, "byte")).code(),
              TS_KEY_BAD_FIELD_COUNT);
}

TEST(FaceValues, PackFieldsBackToBack)
{
    const layout made = sample_layout();
    const key_definition key = *made.key({"text", "signed_half", "single"});
    const result<key_value> whole = made.pack(key, "abc", -2, 0.5);
    ASSERT_TRUE(whole) << whole.message();
    std::vector<int> bytes;
    for (const std::byte byte : whole->bytes) bytes.push_back(std::to_integer<int>(byte));
    EXPECT_THAT(bytes, ElementsAre('a', 'b', 'c', 0, 0, 0, 0xFE, 0xFF, 0, 0, 0, 0x3F));
    EXPECT_EQ(whole->field_count, 3);

    const char full[6] = {'f', 'u', 'l', 'l', 'l', 'y'}; // no zero byte at its end
    EXPECT_EQ(bytes_of(full).size(), 6U);
    const result<key_value> part = made.pack(key, full);
    ASSERT_TRUE(part) << part.message();
    EXPECT_EQ(part->field_count, 1);
    EXPECT_EQ(part->last_length, 6U);

    const std::vector<field_value> at_run_time = {std::string("abc"), int64_t{-2}, 0.5};
    EXPECT_EQ(made.pack_values(key, at_run_time)->bytes, whole->bytes);
    EXPECT_EQ(made.pack(key, "a", 1, 1, 1).code(), face::wrong_length);
    EXPECT_THAT(made.pack(key, "seven x").detail(),
                HasSubstr("text (s): \"seven x\" has 7 bytes, the field 6"));
}

// A field takes a value only if it is the same value there.
TEST(FaceValues, RefuseWhatDoesNotFit)
{
    const layout made = sample_layout();
    std::vector<std::byte> bytes(sizeof(sample));
    const auto fits = [&](const char* name, const auto& value) {
        const std::vector<std::byte> before = bytes;
        const status done = made.set(bytes, name, value);
        if (!done) {
            EXPECT_EQ(done.code(), face::does_not_fit) << done.message();
            EXPECT_THAT(done.detail(), HasSubstr(name));
            EXPECT_EQ(bytes, before);
        }
        return static_cast<bool>(done);
    };
    EXPECT_TRUE(fits("signed_word", INT32_MIN));
    EXPECT_FALSE(fits("signed_word", int64_t{INT32_MAX} + 1));
    EXPECT_TRUE(fits("unsigned_word", UINT32_MAX));
    EXPECT_FALSE(fits("unsigned_word", -1));
    EXPECT_FALSE(fits("signed_half", 32768));
    EXPECT_TRUE(fits("unsigned_half", grade::high));
    EXPECT_FALSE(fits("byte", 256));
    EXPECT_FALSE(fits("byte", "1"));
    EXPECT_TRUE(fits("letter", 'x'));
    EXPECT_FALSE(fits("text", 1));
    EXPECT_FALSE(fits("text", static_cast<const char*>(nullptr)));
    EXPECT_FALSE(fits("text", std::string("a\0b", 3))) << "it would come back as \"a\"";
    EXPECT_TRUE(fits("text", std::string("a\0\0", 3)));
    EXPECT_FALSE(fits("signed_word", 1.0));
    EXPECT_TRUE(fits("single", 0.1));
    EXPECT_FALSE(fits("single", 1e39));
    EXPECT_TRUE(fits("single", INFINITY));
    EXPECT_FALSE(fits("single", (1 << 24) + 1));
    EXPECT_TRUE(fits("number", int64_t{1} << 53));
    EXPECT_FALSE(fits("number", (int64_t{1} << 53) + 1));
    EXPECT_EQ(made.set(std::span(bytes).first(8), "number", 1.0).code(), face::wrong_length);
    EXPECT_EQ(made.set(bytes, "nmuber", 1.0).code(), face::no_such_field);
}

TEST(FaceValues, ComeBackAsTheyWentIn)
{
    const layout made = sample_layout();
    std::vector<std::byte> bytes(sizeof(sample));
    ASSERT_TRUE(made.set(bytes, "unsigned_word", UINT32_MAX));
    ASSERT_TRUE(made.set(bytes, "signed_half", -5));
    ASSERT_TRUE(made.set(bytes, "text", "sixsix"));
    ASSERT_TRUE(made.set(bytes, "number", -2.5));
    EXPECT_EQ(*made.get<uint32_t>(bytes, "unsigned_word"), UINT32_MAX);
    EXPECT_EQ(*made.get<int16_t>(bytes, "signed_half"), -5);
    EXPECT_EQ(*made.get<std::string>(bytes, "text"), "sixsix");
    EXPECT_EQ(std::get<double>(*made.value(bytes, "number")), -2.5);
    EXPECT_EQ(made.get<int32_t>(bytes, "unsigned_word").code(), face::does_not_fit);
    EXPECT_EQ(made.get<int32_t>(bytes, "text").code(), face::does_not_fit);
    EXPECT_EQ(*made.get<float>(bytes, "number"), -2.5F);
    ASSERT_TRUE(made.set(bytes, "number", 1e39));
    EXPECT_EQ(made.get<float>(bytes, "number").code(), face::does_not_fit);
    EXPECT_EQ(made.get<double>(std::span(bytes).first(8), "number").code(), face::wrong_length);
}

// Against values of which the library's own searches say the same.
TEST(FaceValues, StandInTheOrderOfTheTrees)
{
    const layout made = layout::packed({{"text", 's', 4}, {"number", 'd'}});
    const std::vector<field> shape = made.fields();
    const auto order = [&](const char* text, double number, const char* other, double against) {
        const key_definition key = *made.key({"text", "number"});
        const std::vector<std::byte> there = made.pack(key, other, against)->bytes;
        return detail::order_of(shape, *made.pack(key, text, number), there, 3);
    };
    EXPECT_EQ(order("ab", 1, "ab", 1), 0);
    EXPECT_EQ(order("aa", 9, "ab", 1), -1);
    EXPECT_EQ(order("ab", 1, "a", 9), 1);
    EXPECT_EQ(order("\xE9", 1, "a", 1), -1) << "bytes of texts compare as signed ones";
    EXPECT_EQ(order("a\xE9", 1, "a", 1), -1) << "also with the zero byte behind a text";
    EXPECT_EQ(order("ab", 1.0, "ab", 1.0005), 0);
    EXPECT_EQ(order("ab", 1.0, "ab", 1.002), -1);
    EXPECT_EQ(order("ab", NAN, "ab", 1), 0);

    const key_definition by_text = *made.key({"text"});
    const std::vector<std::byte> short_record = {std::byte{'a'}, std::byte{'b'}};
    EXPECT_EQ(detail::order_of(shape, *made.pack(by_text, "ab"), short_record, 3), 0);
    EXPECT_EQ(detail::order_of(shape, *made.pack(by_text, "a"), short_record, 3), 0)
        << "the beginning of a text";
}

TEST(FaceValues, TextsComeIntoANormalForm)
{
    EXPECT_EQ(normal_form("  Zu  rich  ", 8 + 16 + 32 + 64), "ZU RICH");
    EXPECT_EQ(normal_form("", 255), "");
}

} // namespace
