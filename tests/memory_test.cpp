// Tests of memory that runs out: no call may fail but by its result and a message, and all is well when there is some
// again.

#include <optional>
#include <set>

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

  // The messages of problems since the last call, without their prefix.
  std::string ToldProblems() {
    std::string told;
    for (const auto& [level, text] : Problems()) {
      told += (told.empty() ? "" : "; ") + text.substr(text.find(']') + 2);
    }
    return told;
  }

  // Makes a call. If it fails or reports a problem because memory ran out, its messages join `told_`, and it succeeds
  // once there is memory again and `repair` is done.
  void Attempt(
      const std::function<bool()>& call, const std::function<void()>& repair = [] {}) {
    const bool done = call();
    const std::string told = ToldProblems();
    if (done && told.empty()) return;
    ASSERT_TRUE(failure_ && failure_->struck());
    failure_.reset();
    told_.insert(told);
    repair();
    EXPECT_TRUE(call()) << told;
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
    Attempt(construct, [this] {
      if (refusal_leaves_records_) Finalize();
    });
    Attempt([this] { return Initialize(); },
            [&] {
              Finalize();
              construct();
            });
    Attempt([this] { return SourceTags()[0] == "dict_a tag of some length"; });
    Attempt(collect);
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

  // Lets each allocation of a life fail. `refusals` are the messages, each with those behind it, with which the options
  // are then refused.
  void SurvivesEachFailure(const Options& options, const std::vector<std::string>& refusals) {
    RUBRUF_IMPORT(tev_python_environment_init);
    RUBRUF_IMPORT(tev_python_environment_finalize);
    Write("some_script.py", kScript);
    const standin::HostOptions host_options(Library(), options);
    ASSERT_TRUE(restarts_ || tev_python_environment_init() == 0);
    Live(host_options, 0, false);
    const int live = alloc_seam::Live();
    for (const bool all : {false, true}) {
      int first = 1;
      while (!HasFailure() && Live(host_options, first, all)) {
        EXPECT_EQ(alloc_seam::Live(), live) << first;
        ++first;
      }
      EXPECT_GT(first, 60) << all;
    }
    std::set<std::string> told{"memory allocation error",
                               "Memory allocation error; could not load module; " + unbound_};
    if (restarts_) told.insert("could not create python environment; could not start python environment");
    for (const auto& refusal : refusals) {
      told.insert(refusal + "could not parse all scripts options; could not read options");
    }
    EXPECT_EQ(told_, told);
    EXPECT_EQ(tev_python_environment_finalize(), 0);
  }

  // The refusals of a .cfg file, with what follows from one of its parsing.
  static std::vector<std::string> CfgRefusals(const std::string& file, const std::string& unparsed,
                                              const std::string& failed, const std::string& other) {
    const std::string error = unparsed + failed;
    return {"memory allocation error; ",
            "memory allocation error; " + error,
            other,
            error,
            "Could not open file " + file + "; " + error,
            "Could not create tev_dict_t; " + error,
            "could not create tev_dict_t; " + error,
            "Could not read " + file + " properly; " + error};
  }

  bool restarts_ = false;  // each life has an interpreter of its own
  bool refusal_leaves_records_ = false;
  std::string unbound_ = "aborting initialization";  // what is told of a script that cannot be bound
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
    const std::string json = ReadFile(dir_ / "some_script.py.json");
    EXPECT_EQ(standin::ToJsonLine("", tokens), R"({"source": "", "timestamp": 0, "data": )" + json + "}");
    for (const Token& token : tokens) {
      if (token.type != standin::kKeyName) continue;
      EXPECT_EQ(token.key_id, next_key_id_++);
    }
  }

  std::optional<Failure> failure_;
  std::set<std::string> told_;
  uint32_t next_key_id_ = 0;
  std::string scripts_;  // as the first life logged them
};

TEST_F(MemoryTest, OptionsLeadToALifeWhenItIsBack) {
  restarts_ = true;
  refusal_leaves_records_ = true;  // for an argument, that is
  const std::string script = Write("some_script.py", kScript);
  SurvivesEachFailure(Keys("num-scripts=2;1-file=" + script + ";2-file=" + script +
                           ";arg-1-text=some text or other;arg-text=some text or "
                           "other;arg-2-a_name_that_takes_an_allocation=c;arg-3=c;arg-4=d"),
                      {"", "memory allocation error; ", "could not create tev_dict_t; ",
                       "could not set 'text=some text or other' to '" + script + "' configuration; ",
                       "could not set 'a_name_that_takes_an_allocation=c' to '" + script + "' configuration; "});
}

TEST_F(MemoryTest, ADirectoryLeadsToALifeWhenItIsBack) {
  Write("a.cfg",
        "file=some_script.py\nown-module=1\ntolerant=1\narg-other-text = some other text\narg-text = some text or "
        "other\n");
  unbound_ = "script " + dir_ / "some_script.py" + " is out of service";
  SurvivesEachFailure(Keys("log-output=1;release-lock=1;config-dir=" + dir_ / ""),
                      CfgRefusals(dir_ / "a.cfg", "", "Failed to read config directory " + dir_ / "; ",
                                  "Could not open directory " + dir_ / "; "));
}

TEST_F(MemoryTest, AVirtualProviderLeadsToALifeWhenItIsBack) {
  if (!EnterRootWithConfig()) GTEST_SKIP() << "no mount namespace with a /config: " << strerror(errno);
  std::filesystem::create_directory("/config/collection_configs");
  const std::string file = "/config/collection_configs/name.cfg";
  std::ofstream(file) << "file=" << dir_ / "some_script.py"
                      << "\narg-text=some text or other";
  const std::string failed = "Could not add virtual provider name; ";
  SurvivesEachFailure({{"enable-provider", "none,name"}, {"disable-provider", "name.some_item,other,name.other_item"}},
                      CfgRefusals(file, "Could not add 'name' provider; ", failed, failed));
}

// Memory runs out at the first allocation of a call, and a little later in the call behind.
TEST_F(MemoryTest, WritesEachTokenWhenItIsBack) {
  for (const uint32_t period : {2U, UINT32_MAX}) {
    const bool tolerant = period != 2;
    const std::string omitted = tolerant ? "'left_out_by_a_tolerant_walk': [None]," : "";
    const std::string script =
        Script("s.py", "return result",
               "result = []\nfor i in range(1000): result = {" + omitted + "'k' * (i % 20) + str(i): result}");
    Start({script}, Keys(std::string("tolerant=") + (tolerant ? "1" : "")));
    buffer_.refuse = [=, offered = 0U](const Token&) mutable { return ++offered % period == 0; };
    tev_progress_status_t status = TEV_PROGRESS_REFUSED;
    int failures = 0;
    for (int call = 0; call < 10000 && status != TEV_PROGRESS_DONE; ++call) {
      const Failure failure(status == TEV_PROGRESS_ERROR ? 6 : 1, true);
      status = Progress();
      if (status != TEV_PROGRESS_ERROR) continue;
      EXPECT_EQ(log_.Take(), Messages{Error("memory allocation error")});
      ++failures;
    }
    ASSERT_EQ(status, TEV_PROGRESS_DONE);
    EXPECT_GT(failures, 500);
    EXPECT_EQ(ToldProblems(), tolerant ? "values left out of the result of " + script +
                                             ": 1000, the first: left_out_by_a_tolerant_walk[0]: NoneType"
                                       : "");
    std::vector<Token> tokens = buffer_.Drain();
    const Failure failure(tolerant ? 0 : 1, true);
    const std::vector<Token> again = Collect().tokens;
    EXPECT_EQ(failure.struck(), tolerant) << "known keys take no memory";
    tokens.at(0) = again.at(0);  // the time
    EXPECT_EQ(tokens, again);
    Finalize();
  }
}

// A line that memory runs out for is lost, and no other one.
TEST_F(MemoryTest, LogsWhatScriptsPrintWhenItIsBack) {
  Start({Script("s.py", R"py(
    for write, text in (print, 'x' * 2000), (rubruf.log, 'y' * 1000), (sys.stdout.write, 'unfinished'):
        try: write(*(6, text)[write is not rubruf.log:])
        except MemoryError: pass
    return [len(rubruf.stats())])py",
                "import rubruf, sys")},
        Keys("log-output=1;release-lock=1"));
  EXPECT_TRUE(Collect().complete());
  const Messages whole = log_.Take();
  EXPECT_EQ(whole.size(), 6U);
  int struck = 0;
  for (const bool all : {false, true}) {
    for (int first = 1; first < 20; ++first) {
      {
        const Failure failure(first, all);
        Collect();
        struck += failure.struck() ? 1 : 0;
      }
      while (!Collect().complete()) continue;
      log_.Take();
      EXPECT_TRUE(Collect().complete());
      EXPECT_EQ(log_.Take(), whole) << first;
    }
  }
  EXPECT_GT(struck, 10);
}

// The memory that Python takes for itself: for what the script does, and for the UTF-8 form of a text.
TEST_F(MemoryTest, CollectsOnWhenPythonHasSomeAgain) {
  const std::string script = Script(
      "s.py",
      "return [{'a' + str(i) + '\\u00e4': str(args) + '\\u00e4', 'b': [str(args), {'c': 2**70}]} for i in range(3)]");
  Start({script});
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
  // CPython 3.8 and 3.9 end the process where no memory is left to raise MemoryError: one request fails there, not all.
  const std::string version = Library().Symbol<const char* (*)()>("Py_GetVersion")();
  const bool dies_without_memory = version.rfind("3.8.", 0) == 0 || version.rfind("3.9.", 0) == 0;
  for (const char* tolerant : {"0", "1"}) {
    Finalize();
    Start({script}, Keys(std::string("tolerant=") + tolerant));
    std::vector<Token> expected = Collect().tokens;
    for (const bool all : {false, true}) {
      if (all && dies_without_memory) continue;
      int failures[2] = {};  // in the script, in the walk
      for (int first = 1; first < 150; ++first) {
        log_.Take();
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
}

}  // namespace
