// Tests of the stand-in host, on which the other tests rely: its buffer, and its check of streams that become JSON.

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "host/standin/handles.h"
#include "host/standin/json_writer.h"

namespace standin {
namespace {

const Token kStamp{kNewCollection, kNoKey, PayloadOf(uint64_t{1700000000000000})};
const Token kOpenDict{kDictStart, kNoKey}, kCloseDict{kDictEnd, kNoKey};
const Token kOpenList{kListStart, kNoKey}, kCloseList{kListEnd, kNoKey};
const Token kOpenItems{kListStart, 0}, kYes{kTrue, 0}, kCloseItems{kListEnd, 0};
const Token kName{kKeyName, 0, "a\"\n"};
const Token kMinusOne{kLong, 0, PayloadOf(int64_t{-1})};
const Token kHalf{kDouble, kNoKey, PayloadOf(0.5)}, kInfinite{kDouble, kNoKey, PayloadOf(HUGE_VAL)};

Token Text(size_t size) { return {kString, kNoKey, std::string(size, 'x')}; }

TEST(BufferTest, TakesWhatFitsAndReportsOversizedTokens) {
  tev_data_serializer_t buffer(48);
  EXPECT_TRUE(buffer.Write(Text(8)));
  EXPECT_FALSE(buffer.Write(Text(9)) || buffer.oversized) << "25 bytes, but 24 are left";
  EXPECT_TRUE(buffer.Write(Text(8)));
  EXPECT_EQ(buffer.Drain(), std::vector<Token>({Text(8), Text(8)}));

  EXPECT_FALSE(buffer.Write(Text(33)));
  EXPECT_EQ(buffer.oversized, Text(33));
  buffer.refuse = [](const Token& token) { return token == Text(31); };
  EXPECT_FALSE(buffer.Write(Text(31)) || buffer.oversized) << "refused by the test";
  EXPECT_TRUE(buffer.Write(Text(32))) << "fills the whole buffer";
  EXPECT_EQ(buffer.Drain(), std::vector<Token>{Text(32)});
}

TEST(JsonWriterTest, AcceptsCompleteCollectionsOnly) {
  const std::string stamped = R"({"source": "dict_a", "timestamp": 1700000000000000, "data": )";
  const std::pair<std::vector<Token>, std::string> cases[] = {
      // tokens; the whole line, or a part of the error
      {{}, R"({"source": "dict_a", "timestamp": null, "data": null})"},
      {{kStamp, kOpenDict, kName, kMinusOne, kName, kOpenItems, kYes, kYes, kCloseItems, kCloseDict},
       stamped + R"({"a\"\n": -1, "a\"\n": [true, true]}})"},
      {{kStamp, kOpenList, kHalf, kInfinite, kOpenDict, kCloseDict, Text(2), kCloseList},
       stamped + R"([0.5, null, {}, "xx"]})"},
      {{kStamp, kOpenDict, kName, kOpenItems}, "end markers missing: 2"},
      {{kOpenDict}, "token 1, dict_start: a token before the time stamp"},
      {{kStamp, kOpenDict, kStamp}, "a time stamp inside"},
      {{kStamp, kOpenList, kCloseItems}, "does not match"},
      {{kStamp, kOpenList, kCloseList, kOpenList}, "after the end"},
      {{kStamp, kOpenDict, kMinusOne}, "a value without its key name"},
      {{kStamp, kOpenDict, kName, kName}, "a key name where none belongs"},
      {{kStamp, kOpenDict, kName, kHalf}, "another key ID"},
      {{kStamp, kOpenDict, kName, kCloseDict}, "a key name without its value"},
      {{kStamp, kHalf}, "outside a list or dictionary"},
      {{kStamp, kOpenList, {kLong, kNoKey, "123"}}, "a number of 3 bytes"},
      {{kStamp, kOpenList, {11, kNoKey}}, "an unknown type"},
  };
  for (const auto& [tokens, expected] : cases) {
    try {
      EXPECT_EQ(ToJsonLine("dict_a", tokens), expected);
    } catch (const BrokenStream& error) {
      EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what() << "\n" << expected;
    }
  }
}

TEST(JsonWriterTest, WritesDeepStreamsWithoutRecursion) {
  std::vector<Token> tokens{kStamp, kOpenDict};
  for (int i = 0; i < 100000; ++i) tokens.insert(tokens.end(), {kName, {kDictStart, 0}});
  tokens.insert(tokens.end(), 100000, {kDictEnd, 0});
  EXPECT_THROW(ToJsonLine("dict_a", tokens), BrokenStream);
  tokens.push_back(kCloseDict);
  EXPECT_TRUE(nlohmann::json::accept(ToJsonLine("dict_a", tokens)));
}

}  // namespace
}  // namespace standin
