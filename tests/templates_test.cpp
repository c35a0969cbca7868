// Tests of templates: the memory they take, the values they are given, and what cannot be expanded.

#include "utils/strings/templates.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>

#include "tests/library.h"

namespace {

RUBRUF_IMPORT(tev_expand_string_template);
RUBRUF_IMPORT(tev_vexpand_string_template);

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
