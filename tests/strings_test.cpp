// Tests of the string conversions, templates and token lists.

#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string.h>

#include <array>
#include <memory>
#include <optional>

#include "tests/library.h"
#include "utils/strings/conversions.h"
#include "utils/strings/templates.h"

namespace {

RUBRUF_IMPORT(string_to_long);
RUBRUF_IMPORT(string_to_unsigned_long);
RUBRUF_IMPORT(string_to_long_long);
RUBRUF_IMPORT(string_to_unsigned_long_long);
RUBRUF_IMPORT(string_to_sizet);
RUBRUF_IMPORT(string_to_u64);
RUBRUF_IMPORT(string_to_u32);
RUBRUF_IMPORT(string_to_u16);
RUBRUF_IMPORT(string_to_u8);
RUBRUF_IMPORT(string_to_boolean);
RUBRUF_IMPORT(boolean_to_string);
RUBRUF_IMPORT(trim_white_space);
RUBRUF_IMPORT(hex_char_to_int);
RUBRUF_IMPORT(string_to_guid);
RUBRUF_IMPORT(tev_expand_string_template);
RUBRUF_IMPORT(tev_vexpand_string_template);
RUBRUF_IMPORT(string_concat_comma_seperated_token);

// What `convert` makes of `text`. A failure must leave the value alone, and nothing may be written beside it.
template <typename T>
std::optional<T> Convert(bool (*convert)(const char*, T*), const char* text) {
  T values[] = {77, 77, 77};
  errno = ERANGE;  // left over from somewhere else
  const bool success = convert(text, &values[1]);
  EXPECT_TRUE(values[0] == 77 && values[2] == 77 && (success || values[1] == 77)) << (text ? text : "(null)");
  return success ? std::optional<T>(values[1]) : std::nullopt;
}

template <typename T>
void ExpectStrict(bool (*convert)(const char*, T*)) {
  for (const char* text : {"42", " \t\n\v\f\r42", "+42", "0x2a", "0X2A", "052"}) {
    EXPECT_EQ(Convert(convert, text), T{42}) << text;
  }
  for (const char* text : {"0", "-0", "00", "0x0"}) EXPECT_EQ(Convert(convert, text), T{0}) << text;
  for (const char* text : {"", " ", "abc", "0x", "08", "42 ", "42\n", "42abc", "4 2", "4.0", "4e1", "+-4", "- 4",
                           "99999999999999999999", "-99999999999999999999"}) {
    EXPECT_EQ(Convert(convert, text), std::nullopt) << text;
  }
  EXPECT_EQ(Convert(convert, nullptr), std::nullopt);
}

TEST(Numbers, AreReadStrictly) {
  const auto expect_strict = [](auto... convert) { (ExpectStrict(convert), ...); };
  expect_strict(string_to_long, string_to_unsigned_long, string_to_long_long, string_to_unsigned_long_long,
                string_to_sizet, string_to_u64, string_to_u32, string_to_u16, string_to_u8);
  EXPECT_FALSE(string_to_long("1", nullptr));
  EXPECT_FALSE(string_to_unsigned_long("1", nullptr));
  EXPECT_FALSE(string_to_long_long("1", nullptr));
  EXPECT_FALSE(string_to_unsigned_long_long("1", nullptr));
}

TEST(Numbers, AreReadUpToTheirBounds) {
  const auto expect_signed = [](auto convert) {
    EXPECT_EQ(Convert(convert, "-0x2a"), -42);
    EXPECT_EQ(Convert(convert, "9223372036854775807"), INT64_MAX);
    EXPECT_EQ(Convert(convert, "9223372036854775808"), std::nullopt);
    EXPECT_EQ(Convert(convert, "-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(Convert(convert, "-9223372036854775809"), std::nullopt);
  };
  expect_signed(string_to_long);
  expect_signed(string_to_long_long);
  // A minus sign negates in 64 bits; the narrow ones refuse what that yields, unless it fits again.
  const auto expect_unsigned = [](auto convert, auto greatest, const char* text, const char* excess) {
    EXPECT_EQ(Convert(convert, text), greatest);
    EXPECT_EQ(Convert(convert, excess), std::nullopt);
    EXPECT_EQ(Convert(convert, "-1"), sizeof greatest == 8 ? std::optional(greatest) : std::nullopt);
    EXPECT_EQ(Convert(convert, "-18446744073709551615"), 1U);
    EXPECT_EQ(Convert(convert, "-18446744073709551616"), std::nullopt);
  };
  expect_unsigned(string_to_unsigned_long, ~0UL, "18446744073709551615", "18446744073709551616");
  expect_unsigned(string_to_unsigned_long_long, ~0ULL, "0xffffffffffffffff", "0x10000000000000000");
  expect_unsigned(string_to_sizet, SIZE_MAX, "18446744073709551615", "18446744073709551616");
  expect_unsigned(string_to_u64, UINT64_MAX, "18446744073709551615", "18446744073709551616");
  expect_unsigned(string_to_u32, UINT32_MAX, "4294967295", "4294967296");
  expect_unsigned(string_to_u16, uint16_t{UINT16_MAX}, "65535", "65536");
  expect_unsigned(string_to_u8, uint8_t{UINT8_MAX}, "255", "256");
}

TEST(Booleans, AreReadExactly) {
  for (const char* text : {"1", "True", "true"}) EXPECT_TRUE(string_to_boolean(text)) << text;
  EXPECT_TRUE(string_to_boolean(nullptr));
  for (const char* text : {"", "0", "false", "TRUE", "tRUE", "10", "01", " true", "true ", "yes", "on", "t"}) {
    EXPECT_FALSE(string_to_boolean(text)) << text;
  }
  EXPECT_STREQ(boolean_to_string(true), "true");
  EXPECT_STREQ(boolean_to_string(false), "false");
}

TEST(WhiteSpace, IsTrimmedInPlace) {
  const std::array<std::string, 3> cases[] = {{"", "", ""},
                                              {" x", "x", " x"},
                                              {"  a b \t\n", "a b", {"  a b\0\t\n", 8}},
                                              {"x\r\v\f ", "x", {"x\0\v\f ", 5}},
                                              {" \t\n\v\f\r", "", " \t\n\v\f\r"},
                                              {"\xa0x\x85", "\xa0x\x85", "\xa0x\x85"}};
  for (const auto& [text, trimmed, left] : cases) {
    std::string buffer = text;
    const char* const start = trim_white_space(buffer.data());
    EXPECT_EQ(start, trimmed);
    EXPECT_EQ(start, buffer.data() + strspn(text.c_str(), " \t\n\v\f\r"));
    EXPECT_EQ(buffer, left);
  }
}

TEST(HexDigits, HaveTheirValuesAndNoOtherByteHasOne) {
  const std::string lower = "0123456789abcdef";
  const std::string upper = "0123456789ABCDEF";
  for (int byte = 0; byte < 256; ++byte) {
    const char digit = static_cast<char>(byte);
    const size_t value = std::min(lower.find(digit), upper.find(digit));
    EXPECT_EQ(hex_char_to_int(digit), value == std::string::npos ? -1 : static_cast<int>(value)) << byte;
  }
}

TEST(Guids, AreReadInTextOrderWithinTheirSixteenBytes) {
  const std::string bytes("\x01\x23\x45\x67\x89\xab\xcd\xef\x0f\x1e\x2d\x3c\x4b\x5a\x69\x78", 16);
  const std::string guard(16, '\xee');
  std::string guid;
  const auto convert = [&](const char* text) {
    guid = guard + guard;
    return string_to_guid(text, reinterpret_cast<uint8_t*>(guid.data()));
  };
  for (const char* text : {"0123456789abcdef0f1e2d3c4b5a6978", "01234567-89AB-CDEF-0F1E-2D3C4B5A6978",
                           "--0123-4567-89abcdef0f-1e2d3c4b5a6978-", "0-123456789aBcDeF0f1e2d3c4b5a697-8"}) {
    EXPECT_TRUE(convert(text)) << text;
    EXPECT_EQ(guid, bytes + guard) << text;
  }
  for (const char* text : {"", "----", "0123456789abcdef0f1e2d3c4b5a69", "0123456789abcdef0f1e2d3c4b5a697",
                           "0123456789abcdef0f1e2d3c4b5a69780", "0123456789abcdef0f1e2d3c4b5a697800",
                           "0123456789abcdef0f1e2d3c4b5a6978001122", "{01234567-89ab-cdef-0f1e-2d3c4b5a6978}",
                           "01234567 89abcdef0f1e2d3c4b5a6978", "0123456789abcdef0f1e2d3c4b5a6978\n",
                           "0x23456789abcdef0f1e2d3c4b5a6978", "0123456789abcdef0f1e2d3c4b5a697g"}) {
    EXPECT_FALSE(convert(text)) << text;
    EXPECT_EQ(guid.substr(16), guard) << text;
  }
  EXPECT_FALSE(convert(nullptr));
}

using Text = std::unique_ptr<char, decltype(&free)>;

Text Own(char* text) { return {text, free}; }

TEST(Templates, AreExpandedIntoATextOfTheirSize) {
  const std::string longest(100'000, 'x');
  const std::pair<Text, std::string> cases[] = {
      {Own(tev_expand_string_template("%s-%d", "abc", 7)), "abc-7"},
      {Own(tev_expand_string_template("no conversion, 100%%")), "no conversion, 100%"},
      {Own(tev_expand_string_template("%s", "")), ""},
      {Own(tev_expand_string_template("<%s>", longest.c_str())), '<' + longest + '>'}};
  for (const auto& [text, expected] : cases) {
    EXPECT_STREQ(text.get(), expected.c_str());
    EXPECT_LT(malloc_usable_size(text.get()), expected.size() + 1 + 40) << "malloc rounds up, but not by this much";
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

TEST(Templates, LeaveTheValueListAsItWas) { EXPECT_EQ(ExpandTwiceAndReadOn("%d%s;", 1, "a"), "1a;1a;1"); }

TEST(Templates, ThatCannotBeExpandedAreReported) {
  LogCatcher log(TEV_LOG_ERROR);
  EXPECT_EQ(tev_expand_string_template("%ls", L"\u20ac"), nullptr) << "no such character in the C locale";
  EXPECT_EQ(log.Take(), (LogCatcher::Messages{{3, "Failed to calculate length of expanded string template"}}));
}

TEST(TokenLists, GrowByACommaAndAToken) {
  const std::array<const char*, 3> cases[] = {{nullptr, "a", "a"}, {"a", "b", "a,b"},    {"a,b", "c", "a,b,c"},
                                              {"", "b", "b"},      {"a", "", "a,"},      {nullptr, "", ""},
                                              {"", "", ""},        {"a,", "%s", "a,,%s"}};
  for (const auto& [list, token, grown] : cases) {
    EXPECT_STREQ(Own(string_concat_comma_seperated_token(list, token)).get(), grown);
  }
}

}  // namespace
