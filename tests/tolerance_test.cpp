// Tests of tolerant scripts: what is left out of a result, and what happens to scripts that cannot be used.

#include "tests/provider_test_base.h"

namespace {

using namespace messages;
using namespace std::string_literals;
using standin::Token;

using ToleranceTest = ProviderTest;

TEST_F(ToleranceTest, LeavesOutWhatCannotBeCarriedWhateverIsRefused) {
  const struct {
    const char* result;
    const char* json;
    int left_out;
    std::string first;
  } kCases[] = {
      {"{'a': None}", "{}", 1, "a: NoneType"},
      {"[None, 1, (), 2, b'']", "[1, 2]", 3, "[0]: NoneType"},
      {"{'volumes': [{'name': 'x'}, {'size': 1, 'name': None}, {}]}",
       R"({"volumes": [{"name": "x"}, {"size": 1}, {}]})", 1, "volumes[1].name: NoneType"},
      {"[{'a': {'b': [1, {'c': {3}}]}, 'd': 1}]", R"([{"a": {"b": [1, {}]}, "d": 1}])", 1, "[0].a.b[1].c: set"},
      {"{'a': 1, S: 2, 'b': S, 'c': [S, '\\u00e4']}", R"({"a": 1, "c": ["ä"]})", 3,
       "the result: a key without UTF-8 form"},
      {"{'a': {5: 1, 'b': 2}, 'c': S}", R"({"a": {"b": 2}})", 2, "a: a key of type int"},
      {"{'b': S, 'é': 1}", R"({"é": 1})", 1, "b: a text without UTF-8 form"},
      {"[2**63, 2**63 - 1, -2**63, -2**63 - 1, True, 2.5]", "[9223372036854775807, -9223372036854775808, true, 2.5]", 2,
       "[0]: an integer beyond 64 bits"},
      {"[[1], {'a': [[], 1, [2]]}, [3]]", R"([{"a": [1]}])", 4, "[0]: a list in a list"},
      {"{'d': d, 'e': [d, 1]}", R"({"d": {"l": [{}]}, "e": [{"l": [{}]}, 1]})", 2, "d.l[0].d: circular reference"},
      {"{'\\n' + 'k' * 300: None, 'x': {'y': {'z': 1}}}", R"({"x": {"y": {"z": 1}}})", 1,
       "..." + std::string(200, 'k') + ": NoneType"},
      {"{'\\n\\x7f' + 'k' * 198: None}", "{}", 1, "??" + std::string(198, 'k') + ": NoneType"},
  };
  const auto collect = [this] {
    std::vector<Token> tokens = Collect().tokens;
    if (!tokens.empty()) tokens[0].payload = "";  // the time
    return tokens;
  };
  for (const auto& [result, json, left_out, first] : kCases) {
    SCOPED_TRACE(result);
    const std::string script = Script("first.py", "return "s + result, R"(
S = '\ud800' * 2
d = {'l': [{}]}
d['l'][0]['d'] = d
)");
    Start({script}, {{"python-import-1-tolerant", "true"}});
    EXPECT_EQ(Json(), json);
    const Messages told{Warning("values left out of the result of " + script + ": " + std::to_string(left_out) +
                                ", the first: " + first)};
    EXPECT_EQ(Problems(), told);
    const std::vector<Token> stream = collect();
    for (size_t k = 0; k < stream.size(); ++k) {
      Problems();
      buffer_.refuse = [number = size_t{0}, k](const Token&) mutable { return number++ / 2 == k; };
      EXPECT_EQ(collect(), stream) << "tokens " << 2 * k << " and the next refused";
      EXPECT_EQ(Problems(), told);
      buffer_.refuse = nullptr;
    }
    Finalize();
  }
}

TEST_F(ToleranceTest, KeepsTheFaultsOfAScriptToThatScript) {
  Write("sound.py", "def collect(args): return {'a': 1}\ndef get_app_id(): return '0' * 31 + '1'\n");
  Write("raises.py", "def collect(args): return 1 / len(args['none'])\n");
  Write("no_function.py", "def get_tag(): return 'no_function'\n");
  Write("broken.py", "def collect(args) return 1\n");
  Write("wrong_id.py",
        "results = iter([None, 5, 'x', [1]])\ndef collect(args): return next(results)\n"
        "def get_app_id(): return 'x'\n");
  Configure({dir_ / "missing.py", dir_ / "broken.py", dir_ / "no_function.py", dir_ / "wrong_id.py", dir_ / "raises.py",
             dir_ / "sound.py"},
            {{"python-import-tolerant", "True"}});
  ASSERT_TRUE(Initialize());
  const auto out_of_service = [&](const std::string& name) {
    return Error("script " + dir_ / name + " is out of service");
  };
  EXPECT_EQ(Problems(), (Messages{EnvironmentError("Could not import missing"), Error("could not load module"),
                                  out_of_service("missing.py"), EnvironmentError("Could not import broken"),
                                  Error("could not load module"), out_of_service("broken.py"),
                                  Error("could not load python collection function"), out_of_service("no_function.py"),
                                  Error("ignoring invalid app ID (from " + dir_ / "wrong_id.py" + ")")}));
  EXPECT_EQ(SourceTags().size(), 6U);
  for (int round = 0; round < 3; ++round) {
    for (uint32_t index = 0; index < 5; ++index) {
      const standin::Collection collection = Collect(index);
      EXPECT_EQ(collection.status, TEV_PROGRESS_ERROR) << index;
      EXPECT_EQ(collection.tokens, std::vector<Token>()) << index;
    }
    const auto no_function = [&](const std::string& name) {
      return Error("no python function is set for script " + dir_ / name);
    };
    const char* const kTypes[] = {"NoneType", "int", "str"};
    EXPECT_EQ(
        Problems(),
        (Messages{no_function("missing.py"), no_function("broken.py"), no_function("no_function.py"),
                  Error("the result of " + dir_ / "wrong_id.py" + " is no list or dictionary: " + kTypes[round])}));
    EXPECT_EQ(Json(5), R"({"a": 1})");
  }
  EXPECT_EQ(Json(3), "[1]");
  EXPECT_EQ(buffer_.last_write->app_id[15], 1);
}

}  // namespace
