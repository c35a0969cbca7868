// Tests of the string utilities: conversions of texts, trimming, templates and lists.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>

#include "tests/library.h"
#include "utils/strings/conversions.h"
#include "utils/strings/templates.h"

namespace {

RUBRUF_IMPORT(string_to_boolean);
RUBRUF_IMPORT(boolean_to_string);
RUBRUF_IMPORT(trim_white_space);
RUBRUF_IMPORT(hex_char_to_int);
RUBRUF_IMPORT(string_to_guid);
RUBRUF_IMPORT(string_concat_comma_seperated_token);
RUBRUF_IMPORT(tev_expand_string_template);
RUBRUF_IMPORT(tev_vexpand_string_template);

using namespace std::string_literals;
using Text = std::unique_ptr<char, decltype(&free)>;

Text Own(char* text) { return {text, free}; }

// `expected` is the value of `text`, if it has one that fits into a T.
template <typename T, typename Wide>
void ExpectNumber(const char* function, const char* text, std::optional<Wide> expected) {
  const auto convert = Library().Symbol<bool (*)(const char*, T*)>(function);
  constexpr T kPreset = 77;
  T values[] = {kPreset, kPreset, kPreset};
  errno = ERANGE;  // left by an earlier call
  const bool success = convert(text, &values[1]);
  const bool fits = expected && *expected <= std::numeric_limits<T>::max();
  EXPECT_EQ(success, fits) << function << " of " << text;
  EXPECT_EQ(values[1], fits ? static_cast<T>(*expected) : kPreset) << function << " of " << text;
  EXPECT_TRUE(values[0] == kPreset && values[2] == kPreset && !convert(nullptr, &values[1]));
  EXPECT_FALSE(strstr(function, "long") != nullptr && convert("1", nullptr));
}

void ExpectNumbers(const std::string& text, std::optional<int64_t> as_signed, std::optional<uint64_t> as_unsigned) {
  for (const char* name : {"string_to_long", "string_to_long_long"}) ExpectNumber<long>(name, text.c_str(), as_signed);
  for (const char* name :
       {"string_to_unsigned_long", "string_to_unsigned_long_long", "string_to_sizet", "string_to_u64"})
    ExpectNumber<uint64_t>(name, text.c_str(), as_unsigned);
  ExpectNumber<uint32_t>("string_to_u32", text.c_str(), as_unsigned);
  ExpectNumber<uint16_t>("string_to_u16", text.c_str(), as_unsigned);
  ExpectNumber<uint8_t>("string_to_u8", text.c_str(), as_unsigned);
}

TEST(Conversions, ReadWholeTextsThatFitTheType) {
  constexpr uint64_t kTop = uint64_t{1} << 63;
  for (const uint64_t number :
       {uint64_t{0}, uint64_t{7}, uint64_t{255}, uint64_t{256}, uint64_t{65535}, uint64_t{65536}, uint64_t{UINT32_MAX},
        uint64_t{UINT32_MAX} + 1, kTop - 1, kTop, kTop + 1, UINT64_MAX}) {
    const std::string text = std::to_string(number);
    const auto negative = static_cast<int64_t>(-number);
    ExpectNumbers(text, number < kTop ? std::optional(static_cast<int64_t>(number)) : std::nullopt, number);
    ExpectNumbers("-" + text, number <= kTop ? std::optional(negative) : std::nullopt, -number);
  }
  for (const auto& [text, number] :
       {std::pair{"+7", 7}, {" \t\n\v\f\r12", 12}, {"0x1F", 31}, {"0Xff", 255}, {"017", 15}})
    ExpectNumbers(text, number, static_cast<uint64_t>(number));
  for (const char* text : {"", " ", "-", "--1", "- 1", "12 ", "1.5", "08", "0x", "0xg", "0b101", " -0B1", "0o17", "x1",
                           "1e3", "18446744073709551616", "-18446744073709551616"})
    ExpectNumbers(text, {}, {});
}

TEST(Conversions, OfBooleansTrimmedTextsAndDigits) {
  EXPECT_TRUE(string_to_boolean(nullptr));
  for (const char* text : {"1", "True", "true"}) EXPECT_TRUE(string_to_boolean(text)) << text;
  for (const char* text : {"", "0", "TRUE", "true ", "yes", "11", "tru", "false"})
    EXPECT_FALSE(string_to_boolean(text)) << text;
  EXPECT_EQ(boolean_to_string(true) + " "s + boolean_to_string(false), "true false");
  for (const auto& [text, begin, left] : {std::tuple{""s, 0, ""s},
                                          {" \t\n"s, 3, " \t\n"s},
                                          {"\v\f\r a b\xa0 \n"s, 4, "\v\f\r a b\xa0\0\n"s},
                                          {"x"s, 0, "x"s},
                                          {"x "s, 0, "x\0"s}}) {
    std::string trimmed = text;
    EXPECT_EQ(trim_white_space(trimmed.data()) - trimmed.data(), begin) << text;
    EXPECT_EQ(trimmed, left);
  }
  for (int c = CHAR_MIN; c <= CHAR_MAX; ++c) {
    const size_t at = "0123456789abcdefABCDEF"s.find(static_cast<char>(c));
    EXPECT_EQ(hex_char_to_int(static_cast<char>(c)), at == std::string::npos ? -1 : int(at < 16 ? at : at - 6)) << c;
  }
}

TEST(Conversions, OfGuids) {
  const std::string digits = "00112233445566778899aAbBcCdDeEfF";
  const std::pair<std::string, bool> kCases[] = {{digits, true},
                                                 {"-0-0112233-44556677-8899aabbccddeef-f--", true},
                                                 {digits + "0", false},
                                                 {digits + "00", false},
                                                 {digits.substr(1), false},
                                                 {digits.substr(2), false},
                                                 {digits.substr(1) + "g", false},
                                                 {digits + " ", false},
                                                 {"", false},
                                                 {"-", false}};
  for (const auto& [text, is_guid] : kCases) {
    uint8_t guid[18] = {};
    EXPECT_EQ(string_to_guid(text.c_str(), guid + 1), is_guid) << text;
    EXPECT_TRUE(guid[0] == 0 && guid[17] == 0) << text;
    for (int i = 0; is_guid && i < 16; ++i) EXPECT_EQ(guid[i + 1], 0x11 * i) << text;
    EXPECT_FALSE(string_to_guid(nullptr, guid));
  }
}

TEST(Lists, AppendAToken) {
  for (const auto& [list, token, joined] : {std::tuple{"a,b", "c", "a,b,c"}, {"", "c", "c"}, {"a", "", "a,"}})
    EXPECT_STREQ(Own(string_concat_comma_seperated_token(list, token)).get(), joined);
  EXPECT_STREQ(Own(string_concat_comma_seperated_token(nullptr, "c")).get(), "c");
}

TEST(Templates, AreExpandedIntoAnAllocationOfTheirSize) {
  const std::string longest(100'000, 'x');
  const std::pair<Text, std::string> cases[] = {
      {Own(tev_expand_string_template("%s-%d", "abc", 7)), "abc-7"},
      {Own(tev_expand_string_template("no conversion, 100%%")), "no conversion, 100%"},
      {Own(tev_expand_string_template("%s", "")), ""},
      {Own(tev_expand_string_template("<%s>", longest.c_str())), '<' + longest + '>'}};
  for (const auto& [text, expected] : cases) {
    EXPECT_STREQ(text.get(), expected.c_str());
    EXPECT_LT(malloc_usable_size(text.get()), expected.size() + 1 + 40) << "malloc rounds up by less than this";
  }
}

__attribute__((format(printf, 1, 2))) std::string ExpandTwiceAndReadOn(const char* format, ...) {
  va_list values;
  va_start(values, format);
  const Text first = Own(tev_vexpand_string_template(format, values));
  const Text second = Own(tev_vexpand_string_template(format, values));
  const int next = va_arg(values, int);
  va_end(values);
  return std::string(first.get()) + second.get() + std::to_string(next);
}

TEST(Templates, KeepTheValueListUsable) { EXPECT_EQ(ExpandTwiceAndReadOn("%d%s;", 1, "a"), "1a;1a;1"); }

TEST(Templates, ThatCannotBeExpandedAreReported) {
  LogCatcher log(TEV_LOG_ERROR);
  EXPECT_EQ(tev_expand_string_template("%ls", L"\u20ac"), nullptr) << "the C locale does not have this character";
  EXPECT_EQ(log.Take(), (LogCatcher::Messages{{3, "Failed to calculate length of expanded string template"}}));
}

}  // namespace
