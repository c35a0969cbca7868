// Tests of the walk: from the result of a script to the tokens that the host's writer gets.

#include <chrono>

#include "tests/provider_test_base.h"

namespace {

using namespace std::string_literals;
using standin::Collection, standin::Token;
using Tokens = std::vector<Token>;

uint64_t Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// The names of the tokens' types, with a blank before each.
std::string TypeNames(const Tokens& tokens) {
  std::string names;
  for (const Token& token : tokens) names += " "s + standin::TypeName(token.type);
  return names;
}

// The tokens of random results with random refusals are compared with the model in soak/ and fuzz/. These tests cover
// what the model does not: messages, stuck walks, pending errors, and results that change during a walk.
class Walker : public ProviderTest {
 protected:
  // Begins a life with two scripts. The first one runs `statements` and returns the variable `result`.
  void Begin(const std::string& statements, const Options& options = {}) {
    Start({Script("first.py", "return result", statements), Script("second.py", "return [1]")}, options);
  }
};

TEST_F(Walker, WritesWithTheHostsContextAndTheTime) {
  Begin("result = [1]", {{"python-import-app-id", "00112233-4455-6677-8899-aabbccddeeff"}});
  std::vector<uint64_t> times{Now()};
  buffer_.refuse = [&](const Token& token) {
    const standin::WriteContext& write = *buffer_.last_write;
    EXPECT_EQ(write.schema, &type_system_.schemas.back());
    EXPECT_EQ(write.schema_id, standin::kSchemaId);
    EXPECT_EQ(std::string(write.app_id.begin(), write.app_id.end()),
              "\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xaa\xbb\xcc\xdd\xee\xff"s);
    EXPECT_EQ(write.reserved, 0U);
    if (token.type != standin::kNewCollection) return false;
    times.push_back(standin::NumberIn<uint64_t>(token));
    EXPECT_TRUE(times.end()[-2] <= times.back() && times.back() <= Now()) << "the time of this write";
    while (Now() == times.back()) continue;
    times.push_back(Now());
    return times.size() == 3;
  };
  EXPECT_EQ(TypeNames(Collect().tokens), " new_collection list_start long list_end");
  EXPECT_EQ(times.size(), 5U);
}

TEST_F(Walker, IsStuckUntilFinalized) {
  const auto errors = [](const std::string& text) { return Messages{{TEV_LOG_ERROR, text}}; };
  const Messages no_iterable = errors("called OnNewIterable with a not supported iterable");
  const Messages unsupported = errors("[python provider] Got an unsupported type (Progress)");
  const Messages circular = errors("[python provider] circular reference in the result of " + dir_ / "first.py");
  const Messages bad_key{{TEV_LOG_ERROR, "[python provider] key encoding is not UTF-8. setting key to -1"},
                         {TEV_LOG_ERROR, "[python provider] key name encoding of key ID 4294967295 is not UTF-8"}};
  const struct {
    const char* result;
    const char* taken;  // the tokens after the time stamp
    Messages messages;
  } kCases[] = {
      {"{'a': '\\ud800'}", " dict_start key_name",
       errors("[python provider] string encoding of key_id 0 is not UTF-8")},
      {"['x', '\\udfff']", " list_start string",
       errors("[python provider] string encoding of key_id 4294967295 is not UTF-8")},
      {"{'a': 1, '\\ud800': 1}", " dict_start key_name long", bad_key},
      {"{'a': {5: 1}}", " dict_start key_name dict_start", bad_key},
      {"True", "", no_iterable},
      {"'text'", "", no_iterable},
      {"[2**64, {}, {1}]", " list_start long dict_start dict_end", unsupported},
      {"d", " dict_start key_name", circular},
      {"[{}, c]",
       " list_start dict_start dict_end dict_start key_name list_start dict_start key_name dict_start key_name",
       circular},
  };
  uint32_t keys = 0;
  for (const auto& [result, taken, messages] : kCases) {
    SCOPED_TRACE(result);
    Begin("d = {}; d['d'] = d; c = {}; c['c'] = [{'e': {'f': c}}]\nresult = "s + result);
    const Collection collection = Collect();
    EXPECT_EQ(collection.status, TEV_PROGRESS_ERROR);
    EXPECT_EQ(TypeNames(collection.tokens), " new_collection"s + taken);
    EXPECT_EQ(Problems(), messages);
    for (const Token& token : collection.tokens) keys += token.type == standin::kKeyName;
    for (const uint32_t index : {0U, 1U, 7U}) {
      const Collection again = Collect(index);
      EXPECT_EQ(again.status, TEV_PROGRESS_ERROR);
      EXPECT_EQ(again.tokens, Tokens());
      EXPECT_EQ(Problems(), messages);
    }
    Finalize();
    EXPECT_EQ(Problems(), Messages());
  }
  Begin("result = {'a': 1}");
  EXPECT_EQ(Collect().tokens.at(2).key_id, keys) << "each key has got one number, in all lives";
}

// A script may change its result between a refused token and the call that resumes, in "get_tag" for instance.
TEST_F(Walker, FetchesARefusedEntryAnew) {
  const struct {
    const char* result;
    size_t refused;  // the number of the refused token; 0 is the time stamp
    const char* change;
    const char* stream;  // the tokens after the time stamp
  } kCases[] = {
      {"{'a': 1, 'b': 2}", 2, "R['a'] = 99", "dict_start; key_name a; long 99; key_name b; long 2; dict_end"},
      {"{'a': 1, 'b': 2}", 3, "R['a'] = 99", "dict_start; key_name a; long 1; key_name b; long 2; dict_end"},
      {"{'a': 1, 'b': 2}", 2, "del R['a']", "dict_start; key_name b; long 2; dict_end"},
      {"{'a': {'x': 1}}", 3, "R['a'] = {'y': 2}",
       "dict_start; key_name a; key_name a; dict_start; key_name y; long 2; dict_end; dict_end"},
      {"{'a': {'x': 1}}", 3, "R['a'] = 5", "dict_start; key_name a; key_name a; long 5; dict_end"},
      {"{'a': {'b': [1]}}", 5, "R['a'].clear(); R['b'] = R.pop('a')",
       "dict_start; key_name a; dict_start; key_name b; dict_end; dict_end"},
      {"{'a': {'b': [1]}}", 6, "R['a'].clear()",
       "dict_start; key_name a; dict_start; key_name b; list_start; long 1; list_end; dict_end; dict_end"},
      {"[{'x': 1}]", 2, "R[0] = {'y': 2}", "list_start; dict_start; key_name y; long 2; dict_end; list_end"},
  };
  for (const auto& [result, refused, change, stream] : kCases) {
    SCOPED_TRACE(testing::Message() << result << ", " << change);
    const std::string changing = "\ndef get_tag():\n    "s + change + "\n    return 'mine'\n";
    Start({Script("first.py", "return R", "R = "s + result + changing)});
    buffer_.refuse = [number = size_t{0}, last = refused](const Token&) mutable { return number++ == last; };
    EXPECT_EQ(Progress(), TEV_PROGRESS_REFUSED);
    EXPECT_EQ(SourceTags(), std::vector<std::string>{"dict_mine"});
    EXPECT_EQ(Progress(), TEV_PROGRESS_DONE);
    std::string written;
    for (const Token& token : buffer_.Drain()) {
      if (token.type == standin::kNewCollection) continue;
      written += (written.empty() ? "" : "; ") + std::string(standin::TypeName(token.type));
      if (token.type == standin::kKeyName) written += " " + token.payload;
      if (token.type == standin::kLong) written += " " + std::to_string(standin::NumberIn<int64_t>(token));
    }
    EXPECT_EQ(written, stream);
    Finalize();
  }
}

// The error of an integer beyond 64 bits stays pending until a list or the walk ends, even if get_tag raises meanwhile.
TEST_F(Walker, KeepsThePendingErrorOfALargeInteger) {
  const auto overflow_is_pending = [] {
    const auto matches = Library().Symbol<int (*)(void*)>("PyErr_ExceptionMatches");
    return Library().Symbol<void* (*)()>("PyErr_Occurred")() != nullptr &&
           matches(*Library().Symbol<void**>("PyExc_OverflowError")) != 0;
  };
  const struct {
    const char* result;
    std::vector<bool> pending;  // whether the error is pending at each token after the start marker
  } kCases[] = {
      {"{'n': 2**64, 't': chr(233) * 3, chr(234) * 3: {}}", {false, false, true, true, true, true, true, true}},
      {"{'l': [2**64, 1], 'n': 1}", {false, false, false, true, true, false, false, false}},
      {"{'n': 2**64, 't': chr(0xd800) * 3}", {false, false, true, true}},
  };
  for (const auto& [result, pending] : kCases) {
    SCOPED_TRACE(result);
    Start({Script("first.py", "return "s + result, "def get_tag(): raise ValueError")});
    std::vector<bool> seen;
    buffer_.refuse = [&](const Token& token) {
      if (seen.size() == 4) SourceTags();
      if (token.type == standin::kNewCollection || token.key_id != standin::kNoKey)
        seen.push_back(overflow_is_pending());
      return false;
    };
    const bool stuck = Collect().stuck();
    EXPECT_EQ(seen, pending);
    EXPECT_EQ(overflow_is_pending(), stuck) << "at the end";
    Finalize();
  }
}

// A stuck walk raises its error again with every call. No error may keep the one before it alive.
TEST_F(Walker, UsesNoMoreMemoryWhileStuck) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer keeps freed memory for a while, so memory grows";
#endif
  const auto resident_pages = [] {
    size_t size = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident;
  };
  log_.Take();
  for (const char* result :
       {"result = {'a': '\\ud800'}", "result = {'\\ud800': 1}", "result = {'n': 2**64, 'a': '\\ud800'}"}) {
    Begin(result);
    size_t after_warm_up = 0;
    for (int call = 0; call < 20000; ++call) {
      ASSERT_EQ(Progress(), TEV_PROGRESS_ERROR);
      log_.Take();
      if (call == 2000) after_warm_up = resident_pages();
    }
    EXPECT_LT(resident_pages(), after_warm_up + 256) << result;
    Finalize();
  }
}

// The key is read twice, for its number and for its token. A handler for encoding errors may answer differently.
TEST_F(Walker, WritesNoKeyWithoutItsNumber) {
  Start({Script("first.py", "return {chr(0xd800) * 2: 1}", R"(
import codecs
answers = iter([False, True, True, True])
codecs.register_error('strict', lambda e: ('?', e.end) if next(answers) else codecs.strict_errors(e))
)")});
  EXPECT_EQ(TypeNames(Collect().tokens), " new_collection dict_start");
  EXPECT_EQ(Problems().size(), 2U);
  EXPECT_EQ(TypeNames(Collect().tokens), " key_name long dict_end");
}

// During a walk, get_tag and handlers for encoding errors run code of the script, which may change the result. A
// pending error of the walk must not change what they return.
TEST_F(Walker, SurvivesAScriptThatEmptiesItsResult) {
  setenv("PYTHONMALLOC", "malloc", 0);  // so that the sanitizer sees each object
  for (size_t refused = 1; refused < 30; ++refused) {
    Start({Script("first.py", "return result", R"(
import codecs
result = [2**70, {'k': {'l': ['text' * 3, {'m': 1}]}, chr(110) * 2: [1, {}], chr(0xd800) * 2: 1}, chr(0xd800) * 3, 'end']
def get_tag(error=None):
    if result: result[1].clear()
    result.clear()
    codecs.register_error('strict', codecs.strict_errors)
    return ('?' * 9, error.end) if error else 'mine'
codecs.register_error('strict', get_tag)
)")});
    buffer_.refuse = [refused, number = size_t{0}](const Token&) mutable { return number++ == refused; };
    EXPECT_NE(Progress(), TEV_PROGRESS_ERROR);
    EXPECT_EQ(SourceTags(), std::vector<std::string>{"dict_mine"});
    buffer_.refuse = nullptr;
    EXPECT_EQ(Collect().status, TEV_PROGRESS_DONE);
    buffer_.Drain();
    Finalize();
  }
}

}  // namespace
