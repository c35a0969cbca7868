// Tests of the string conversions where there is no text, and of templates. What texts are read as is compared with
// other readings of them where they are fuzzed.

#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>

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
RUBRUF_IMPORT(string_to_guid);
RUBRUF_IMPORT(tev_expand_string_template);
RUBRUF_IMPORT(tev_vexpand_string_template);

TEST(Conversions, RefuseWhatIsNotThere) {
  const auto refuse = [](auto convert) { EXPECT_FALSE(convert("1", nullptr)); };
  refuse(string_to_long);
  refuse(string_to_unsigned_long);
  refuse(string_to_long_long);
  refuse(string_to_unsigned_long_long);
  const auto refuse_null = [](auto convert, auto value) { EXPECT_FALSE(convert(nullptr, &value) || value != 77); };
  refuse_null(string_to_long, 77L);
  refuse_null(string_to_unsigned_long, 77UL);
  refuse_null(string_to_long_long, 77LL);
  refuse_null(string_to_unsigned_long_long, 77ULL);
  refuse_null(string_to_sizet, size_t{77});
  refuse_null(string_to_u64, uint64_t{77});
  refuse_null(string_to_u32, uint32_t{77});
  refuse_null(string_to_u16, uint16_t{77});
  refuse_null(string_to_u8, uint8_t{77});
  refuse_null(string_to_guid, uint8_t{77});
  EXPECT_TRUE(string_to_boolean(nullptr));
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

}  // namespace
