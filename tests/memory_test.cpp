// Tests of memory that runs out: no call may fail but by its result and a message, and all is well when there is some
// again.

#include <dlfcn.h>

#include "host/standin/json_writer.h"
#include "tests/alloc_seam.h"
#include "tests/provider_test_base.h"
#include "tests/root_with_config.h"
#include "utils/python_env/python_env.h"

namespace {

using namespace messages;
using namespace std::string_literals;
using alloc_seam::Failure;
using standin::Token;
using Tags = std::vector<std::string>;

const auto kNoMemory = Error("memory allocation error");

class MemoryTest : public ProviderTest {
 protected:
  MemoryTest() { alloc_seam::Watch(); }

  // Nothing may need memory in order to be released.
  void Finalize() {
    const Failure failure(1, true);
    ProviderTest::Finalize();
    EXPECT_FALSE(failure.struck());
  }

  // Calls `attempt` with the number of the allocation that is to fail, and whether all behind it shall too, until
  // that is more than are made, `fewest` at the least; it returns whether it was.
  template <class Attempt>
  void FailEach(int fewest, Attempt attempt) {
    for (const bool all : {false, true}) {
      int first = 1;
      while (!HasFailure() && attempt(first, all)) ++first;
      EXPECT_GT(first, fewest);
      RecordProperty(all ? "from_one_on" : "one", first - 1);
    }
  }

  // Whether `call` succeeds while that fails. Of one failure alone the C library may make do.
  template <class Call>
  bool SucceedsUnder(int first, bool all, bool* struck, Call call) {
    const Failure failure(first, all);
    const bool succeeds = call();
    *struck = failure.struck();
    EXPECT_TRUE(succeeds ? !*struck || !all : *struck) << first;
    return succeeds;
  }

  void SurvivesConstruction(const Options& options, int fewest) {
    const standin::HostOptions host_options(Library(), options);
    ASSERT_TRUE(Construct(options));
    const std::string scripts = LoggedScripts();
    Finalize();
    const int live = alloc_seam::Live();
    FailEach(fewest, [&](int first, bool all) {
      log_.Take();
      bool struck = false;
      if (!SucceedsUnder(first, all, &struck, [&] { return Library().Construct(host_options.get()) != nullptr; })) {
        const Messages told = Problems();
        EXPECT_EQ(told.back(), Error("could not read options")) << first;
        EXPECT_GT(told.size(), 1u) << "a cause";
        Finalize();
        EXPECT_EQ(alloc_seam::Live(), live) << first;
        EXPECT_TRUE(Construct(options)) << first;
      }
      EXPECT_EQ(LoggedScripts(), scripts) << first;
      Finalize();
      EXPECT_EQ(alloc_seam::Live(), live) << first;
      return struck;
    });
  }

  std::string CountingScript() {
    return Write("a_script_of_a_long_name.py", R"(
import json
calls = 0
def get_tag(): return 'a tag of some length'
def get_app_id(): return '00112233-4455-6677-8899-aabbccddeeff'
def collect(args):
    global calls
    calls += 1
    new = 'key of call %d, ' % calls
    result = {new + str(i): [{'i': i, new + 'inner': 2.5}, 'text \u00e4'] for i in range(8)}
    open(args['expected'], 'w', encoding='utf-8').write(json.dumps(result, ensure_ascii=False))
    return result
)");
  }
  Options Expected() { return {{"python-import-arg-expected", dir_ / "expected"}}; }
  void ExpectAsReturned(std::vector<Token> tokens) {
    ASSERT_FALSE(tokens.empty());
    tokens[0].payload = standin::PayloadOf(uint64_t{0});
    std::stringstream expected;
    expected << std::ifstream(dir_ / "expected").rdbuf();
    EXPECT_EQ(standin::ToJsonLine("", tokens), R"({"source": "", "timestamp": 0, "data": )" + expected.str() + "}");
    for (const Token& token : tokens) {
      if (token.type != standin::kKeyName) continue;
      const auto next = first_key_id_ + static_cast<uint32_t>(key_ids_.size());
      EXPECT_EQ(token.key_id, key_ids_.try_emplace(token.payload, next).first->second) << token.payload;
    }
  }

  uint32_t first_key_id_ = 0;  // of this life
  std::map<std::string, uint32_t> key_ids_;
};

const std::string kLong = "/of/more/than/a/few/characters/";

TEST_F(MemoryTest, OptionsAreReadWhenItIsBack) {
  SurvivesConstruction(Keys("num-scripts=2;1-file=" + kLong + "a.py;2-file=" + kLong +
                            "b.py;function=some_function_or_other"
                            ";tag=some_tag_or_other;arg-1-text=some text;arg-other=some other text;arg-3=c;arg-4=d"),
                       40);
}

TEST_F(MemoryTest, ADirectoryIsReadWhenItIsBack) {
  Write("a.cfg",
        "file=" + kLong + "a.py\ntag=some_tag_or_other\nfunction=some_function_or_other\narg-text = some text\n");
  SurvivesConstruction({{"python-import-config-dir", dir_ / ""}}, 40);
}

TEST_F(MemoryTest, VirtualProvidersAreReadWhenItIsBack) {
  if (!EnterRootWithConfig()) GTEST_SKIP() << "no mount namespace with a /config: " << strerror(errno);
  const std::filesystem::path directory = "/config/collection_configs";
  std::filesystem::create_directory(directory);
  std::ofstream(directory / "a_name_of_some_length.cfg") << "file=" + kLong + "a.py\ntag=tag\nfunction=run";
  SurvivesConstruction({{"enable-provider", "none,a_name_of_some_length"},
                        {"disable-provider", "a_name_of_some_length.a,other,a_name_of_some_length.b"}},
                       40);
}

TEST_F(MemoryTest, InitializesWhenItIsBack) {
  RUBRUF_IMPORT(tev_python_environment_is_set);
  const std::string script = CountingScript();
  Start({script, script}, Expected());
  EXPECT_TRUE(Collect().complete());
  Finalize();
  const int live = alloc_seam::Live();
  FailEach(8, [&](int first, bool all) {
    Configure({script, script}, Expected());
    bool struck = false;
    if (!SucceedsUnder(first, all, &struck, [&] { return Initialize(); })) {
      EXPECT_EQ(tev_python_environment_is_set(), 0);
      const Messages told = Problems();
      EXPECT_GT(told.size(), 1u) << "a cause";
      EXPECT_EQ(told.back(), Error(first == 1 ? "could not start python environment" : "aborting initialization"));
      Finalize();
      EXPECT_EQ(alloc_seam::Live(), live) << first;
      Start({script, script}, Expected());
    }
    EXPECT_TRUE(Collect(1).complete());
    Finalize();
    EXPECT_EQ(alloc_seam::Live(), live) << first;
    return struck;
  });
}

TEST_F(MemoryTest, NamesItsSourcesWhenItIsBack) {
  RUBRUF_IMPORT(tev_python_environment_init);
  RUBRUF_IMPORT(tev_python_environment_finalize);
  ASSERT_EQ(tev_python_environment_init(), 0) << "one interpreter for all lives";
  const std::string asked = CountingScript();
  const std::string hashed = Script("hashed.py", "return []");
  FailEach(4, [&](int first, bool all) {
    Start({asked, hashed}, Expected());
    const Tags expected{"dict_a tag of some length", HashTag(hashed)};
    bool struck = false;
    if (!SucceedsUnder(first, all, &struck, [&] { return SourceTags() == expected; })) {
      EXPECT_EQ(Problems(), Messages{kNoMemory});
      EXPECT_EQ(tev_source_array_t::live, 0);
      EXPECT_EQ(SourceTags(), expected);
    }
    Finalize();
    return struck;
  });
  tev_python_environment_finalize();
}

TEST_F(MemoryTest, CollectsOnWhenItIsBack) {
  Start({CountingScript()}, Expected());
  buffer_.refuse = [offered = 0](const Token&) mutable { return ++offered % 2 == 0; };
  FailEach(15, [&](int first, bool all) {
    standin::Collection collection;
    bool struck = false;
    const bool complete = SucceedsUnder(first, all, &struck, [&] { return (collection = Collect()).complete(); });
    std::vector<Token> tokens = collection.tokens;
    if (!complete) {
      EXPECT_EQ(collection.status, TEV_PROGRESS_ERROR);
      EXPECT_EQ(Problems(), Messages{kNoMemory});
      collection = Collect();
      EXPECT_TRUE(collection.complete());
      tokens.insert(tokens.end(), collection.tokens.begin(), collection.tokens.end());
    }
    ExpectAsReturned(tokens);
    return struck;
  });
}

TEST_F(MemoryTest, AHundredLivesLeaveNothing) {
  const std::string script = CountingScript();
  int live = 0;
  for (int life = 0; life < 100; ++life) {
    Start({script}, Expected());
    EXPECT_EQ(SourceTags(), Tags{"dict_a tag of some length"});
    ExpectAsReturned(Collect().tokens);
    Finalize();
    first_key_id_ += static_cast<uint32_t>(key_ids_.size());
    key_ids_.clear();
    if (life == 0) live = alloc_seam::Live();
    ASSERT_EQ(alloc_seam::Live(), live) << life;
  }
}

// The memory that Python takes for itself: for what the script does, and for the UTF-8 form of a text.
TEST_F(MemoryTest, CollectsOnWhenPythonHasSomeAgain) {
  Start(
      {Script("s.py", "return [{'a': str(args) + '\\u00e4', 'b': [str(args), 2.5, {'c': 2**70}]} for i in range(3)]")});
  void* const module = Library().Symbol<void* (*)(const char*)>("PyImport_ImportModule")("_testcapi");
  if (module == nullptr) GTEST_SKIP() << "this Python has no _testcapi";
  // Called as what they are in C, since the interpreter would need memory to call them.
  using Function = void* (*)(void* self, void* arguments);
  const auto function = [&](const char* name) {
    void* const object = Library().Symbol<void* (*)(void*, const char*)>("PyObject_GetAttrString")(module, name);
    return Library().Symbol<Function (*)(void*)>("PyCFunction_GetFunction")(object);
  };
  const Function fail = function("set_nomemory");
  const Function restore = function("remove_mem_hooks");
  const auto pair = Library().Symbol<void* (*)(const char*, ...)>("Py_BuildValue");

  std::vector<Token> expected = Collect().tokens;
  expected.at(0).payload = standin::PayloadOf(uint64_t{0});
  for (const bool all : {false, true}) {
    int in_script = 0;
    int in_walk = 0;
    for (int first = 1; first < 150; ++first) {
      void* const numbers = pair("(ii)", first, all ? 0 : first + 1);
      fail(nullptr, numbers);
      standin::Collection collection = Collect();
      restore(nullptr, nullptr);
      std::vector<Token> tokens = collection.tokens;
      const Messages messages = Problems();
      if (!collection.complete()) {
        EXPECT_EQ(collection.status, TEV_PROGRESS_ERROR);
        EXPECT_EQ(messages, tokens.empty() ? Messages() : Messages{Error("string encoding of key_id 0 is not UTF-8")});
        ++(tokens.empty() ? in_script : in_walk);
        collection = Collect();
        tokens.insert(tokens.end(), collection.tokens.begin(), collection.tokens.end());
      }
      ASSERT_EQ(tokens.size(), expected.size()) << first;
      tokens[0].payload = expected[0].payload;
      EXPECT_EQ(tokens, expected) << first;
    }
    EXPECT_GT(in_script, 10);
    EXPECT_GT(in_walk, 2);
    RecordProperty(all ? "from_one_on" : "one", in_script + in_walk);
  }
}

}  // namespace
