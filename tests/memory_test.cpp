// Tests of memory that runs out: no call may fail but by its result and a message, and all is well when there is some
// again.

#include <optional>

#include "host/standin/json_writer.h"
#include "tests/alloc_seam.h"
#include "tests/provider_test_base.h"
#include "tests/root_with_config.h"
#include "utils/python_env/python_env.h"

namespace {

using namespace messages;
using alloc_seam::Failure;
using standin::Token;

class MemoryTest : public ProviderTest {
 protected:
  MemoryTest() { alloc_seam::Watch(); }

  // Makes a call. If it fails because memory ran out, its last messages are `told`, and it succeeds once there is
  // memory again and `repair` is done.
  void Attempt(
      const std::function<bool()>& call, const Messages& told, const std::function<void()>& repair = [] {}) {
    if (call()) return;
    const std::string& name = told.back().second;
    ASSERT_TRUE(failure_ && failure_->struck()) << name;
    failure_.reset();
    const Messages problems = Problems();
    const size_t earlier = problems.size() - std::min(problems.size(), told.size());
    EXPECT_EQ(Messages(problems.begin() + static_cast<std::ptrdiff_t>(earlier), problems.end()), told);
    repair();
    EXPECT_TRUE(call()) << name;
  }

  // A life of kScript, in which memory runs out as Failure tells. True when it did.
  bool Live(const standin::HostOptions& options, int first, bool all) {
    const auto construct = [&] {
      tev_event_provider_t* const constructed = Library().Construct(options.get());
      if (constructed != nullptr) provider_ = constructed;
      return constructed != nullptr;
    };
    std::vector<Token> tokens;
    const auto collect = [&] {
      const standin::Collection collection = Collect();
      tokens.insert(tokens.end(), collection.tokens.begin(), collection.tokens.end());
      return collection.complete();
    };
    buffer_.refuse = [offered = 0](const Token&) mutable { return ++offered % 2 == 0; };
    failure_.emplace(first, all);
    Attempt(construct, Refusal({}), [this] {
      if (refusal_leaves_records_) Finalize();
    });
    Attempt([this] { return Initialize(); }, {Error("aborting initialization")}, construct);
    Attempt([this] { return SourceTags()[0] == "dict_a tag of some length"; }, {Error("memory allocation error")});
    Attempt(collect, {Error("memory allocation error")});
    const bool struck = !failure_ || failure_->struck();
    EXPECT_FALSE(all && failure_ && struck) << "a failure was passed over";
    failure_.reset();

    ExpectAsReturned(tokens);
    const std::string scripts = LoggedScripts();
    if (scripts_.empty()) scripts_ = scripts;
    EXPECT_EQ(scripts, scripts_);
    failure_.emplace(1, true);
    Finalize();
    EXPECT_FALSE(failure_->struck()) << "memory is needed to give some back";
    failure_.reset();
    return struck;
  }

  // Lets each allocation of a life fail, those of the interpreter's start aside.
  void SurvivesEachFailure(const Options& options) {
    RUBRUF_IMPORT(tev_python_environment_init);
    RUBRUF_IMPORT(tev_python_environment_finalize);
    Write("some_script.py", kScript);
    const standin::HostOptions host_options(Library(), options);
    ASSERT_EQ(tev_python_environment_init(), 0);
    Live(host_options, 0, false);
    const int live = alloc_seam::Live();
    for (const bool all : {false, true}) {
      int first = 1;
      while (!HasFailure() && Live(host_options, first, all)) {
        EXPECT_EQ(alloc_seam::Live(), live) << first;
        ++first;
      }
      EXPECT_GT(first, 60) << all;
      RecordProperty(all ? "from_one_on" : "one", first - 1);
    }
    EXPECT_EQ(tev_python_environment_finalize(), 0);
  }

  bool refusal_leaves_records_ = false;
  static constexpr char kScript[] = R"(
import json, os
def get_tag(): return 'a tag of some length'
def collect(args):
    new = os.urandom(8).hex()
    result = {new + str(i): [{new + 'in' + str(i): 2.5}, args['text']] for i in range(8)}
    open(__file__ + '.json', 'w').write(json.dumps(result))
    return result
)";

 private:
  // What kScript has returned, with the numbers of its keys one behind the other.
  void ExpectAsReturned(std::vector<Token> tokens) {
    ASSERT_FALSE(tokens.empty());
    tokens[0].payload = standin::PayloadOf(uint64_t{0});
    std::string json;
    std::ifstream file(dir_ / "some_script.py.json");
    std::getline(file, json);
    EXPECT_EQ(standin::ToJsonLine("", tokens), R"({"source": "", "timestamp": 0, "data": )" + json + "}");
    for (const Token& token : tokens) {
      if (token.type != standin::kKeyName) continue;
      EXPECT_EQ(token.key_id, next_key_id_++);
    }
  }

  std::optional<Failure> failure_;
  uint32_t next_key_id_ = 0;
  std::string scripts_;  // as the first life logged them
};

TEST_F(MemoryTest, OptionsLeadToALifeWhenItIsBack) {
  refusal_leaves_records_ = true;  // for an argument, that is
  SurvivesEachFailure(Keys("num-scripts=2;1-file=" + dir_ / "some_script.py;2-file=" + dir_ / "some_script.py" +
                           ";arg-1-text=some text or other;arg-text=some text or "
                           "other;arg-2-a_name_that_takes_an_allocation=c;arg-3=c;arg-4=d"));
}

TEST_F(MemoryTest, ADirectoryLeadsToALifeWhenItIsBack) {
  Write("a.cfg", "file=some_script.py\narg-other-text = some other text\narg-text = some text or other\n");
  SurvivesEachFailure({{"python-import-config-dir", dir_ / ""}});
}

TEST_F(MemoryTest, AVirtualProviderLeadsToALifeWhenItIsBack) {
  if (!EnterRootWithConfig()) GTEST_SKIP() << "no mount namespace with a /config: " << strerror(errno);
  std::filesystem::create_directory("/config/collection_configs");
  std::ofstream("/config/collection_configs/name.cfg") << "file=" << dir_ / "some_script.py"
                                                       << "\narg-text=some text or other";
  SurvivesEachFailure({{"enable-provider", "none,name"}, {"disable-provider", "name.some_item,other,name.other_item"}});
}

TEST_F(MemoryTest, AHundredLivesLeaveNothing) {
  const standin::HostOptions options(Library(),
                                     Keys("file=" + Write("some_script.py", kScript) + ";arg-text=some text or other"));
  int live = 0;
  for (int life = 0; life < 100; ++life) {
    Live(options, 0, false);
    if (life == 0) live = alloc_seam::Live();
    ASSERT_EQ(alloc_seam::Live(), live) << life;
  }
}

TEST_F(MemoryTest, TheInterpreterStartsWhenItIsBack) {
  Configure({Script("s.py", "return [1]")});
  {
    const Failure failure(1, false);
    EXPECT_FALSE(Initialize());
  }
  EXPECT_EQ(log_.Take(), (Messages{EnvironmentError("could not create python environment"),
                                   Error("could not start python environment")}));
  EXPECT_TRUE(Initialize());
  EXPECT_TRUE(Collect().complete());
}

// Each call of progress has to do with one token, and with no memory at first.
TEST_F(MemoryTest, WritesEachTokenWhenItIsBack) {
  Start({Script("s.py", "return result", "result = []\nfor i in range(1000): result = {'key %d' % i: result}")});
  buffer_.refuse = [offered = 0](const Token&) mutable { return ++offered % 2 == 0; };
  tev_progress_status_t status = TEV_PROGRESS_REFUSED;
  int failures = 0;
  for (int call = 0; call < 10000 && status == TEV_PROGRESS_REFUSED; ++call) {
    {
      const Failure failure(1, true);
      status = Progress();
    }
    if (status != TEV_PROGRESS_ERROR) continue;
    EXPECT_EQ(log_.Take(), Messages{Error("memory allocation error")});
    ++failures;
    status = Progress();
  }
  ASSERT_EQ(status, TEV_PROGRESS_DONE);
  EXPECT_GT(failures, 1000);
  std::vector<Token> tokens = buffer_.Drain();
  const std::vector<Token> again = Collect().tokens;
  tokens.at(0) = again.at(0);  // the time
  EXPECT_EQ(tokens, again);
}

// The memory that Python takes for itself: for what the script does, and for the UTF-8 form of a text.
TEST_F(MemoryTest, CollectsOnWhenPythonHasSomeAgain) {
  Start({Script(
      "s.py",
      "return [{'a' + str(i) + '\\u00e4': str(args) + '\\u00e4', 'b': [str(args), {'c': 2**70}]} for i in range(3)]")});
  void* const module = Library().Symbol<void* (*)(const char*)>("PyImport_ImportModule")("_testcapi");
  if (module == nullptr) GTEST_SKIP() << "this Python has no _testcapi";
  // Called as what they are in C, since the interpreter would need memory to call them.
  const auto function = [&](const char* name) {
    void* const object = Library().Symbol<void* (*)(void*, const char*)>("PyObject_GetAttrString")(module, name);
    using Function = void* (*)(void* self, void* arguments);
    return Library().Symbol<Function (*)(void*)>("PyCFunction_GetFunction")(object);
  };
  const auto fail = function("set_nomemory");
  const auto restore = function("remove_mem_hooks");
  const auto pair = Library().Symbol<void* (*)(const char*, ...)>("Py_BuildValue");
  const auto nothing_told = Messages();
  const Messages walk_told{Error("memory allocation error")};
  std::vector<Token> expected = Collect().tokens;
  for (const bool all : {false, true}) {
    int failures[2] = {};  // in the script, in the walk
    for (int first = 1; first < 150; ++first) {
      void* const numbers = pair("(ii)", first, all ? 0 : first + 1);
      fail(nullptr, numbers);
      standin::Collection collection = Collect();
      restore(nullptr, nullptr);
      std::vector<Token> tokens = collection.tokens;
      const Messages told = Problems();
      if (!collection.complete()) {
        EXPECT_EQ(told, tokens.empty() ? nothing_told : walk_told) << first;
        ++failures[!tokens.empty()];
        collection = Collect();
        tokens.insert(tokens.end(), collection.tokens.begin(), collection.tokens.end());
      }
      ASSERT_EQ(tokens.size(), expected.size()) << first;
      expected[0] = tokens[0];  // the time
      EXPECT_EQ(tokens, expected) << first;
    }
    EXPECT_TRUE(failures[0] > 10 && failures[1] > 2) << failures[0] << ", " << failures[1];
  }
}

}  // namespace
