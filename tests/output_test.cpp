// Tests of the options of the whole provider: what scripts write reaches the log, and the interpreter's lock is given
// back between callbacks.

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "tests/provider_test_base.h"
#include "utils/python_env/python_env.h"

namespace {

using namespace messages;
using standin::Token;

RUBRUF_IMPORT(tev_python_environment_init);
RUBRUF_IMPORT(tev_python_environment_finalize);
RUBRUF_IMPORT(set_log_func);

class OutputTest : public ProviderTest {
 protected:
  static inline const Options kOn{{"python-import-log-output", "true"}, {"python-import-own-module", "1"}};

  // What a life of a script writes whose function has this body.
  std::string Live(const std::string& body, const std::string& more = "") {
    Configure({Script("s.py", body, "import atexit, io, sys, threading, time, warnings\n" + more)}, kOn);
    EXPECT_TRUE(Initialize());
    Collect();
    Finalize();
    return Told();
  }
};

TEST_F(OutputTest, ReachesTheLogLineByLine) {
  const std::string e = "\u00e9";
  const auto times = [](size_t count, const std::string& text) {
    std::string all;
    for (size_t i = 0; i < count; ++i) all += text;
    return all;
  };
  const std::pair<std::string, std::string> kBodies[] = {
      {R"(print('a', 1); print('b\nc\n'); sys.stderr.write('d\n'))", "6a 1|6b|6c|6|3d"},
      {"sys.stdout.write('no '); sys.stderr.write('x'); sys.stdout.write('end')", "6no end|3x"},
      {"print('x' + chr(233) * 1000)", "6x" + times(490, e) + "|6" + times(491, e) + "|6" + times(19, e)},
      {"sys.stdout.write('x' * 983)", "6" + std::string(982, 'x') + "|6x"},
      {"print('a\\0b', chr(0xdc80)); sys.stdout.buffer.write(b'raw')", "6a b \\udc80|6raw"},
      {"t = threading.Thread(target=print, args=['t']); t.start(); t.join(); print('own')", "6t|6own"},
      {"t = threading.Thread(target=sys.stdout.write, args=['t']); t.start(); t.join(); print('own')", "6own|6t"},
      {"sys.stdout = io.StringIO(); print('to the script')", ""},
      {"sys.stdout.close(); sys.stderr = None; print", ""},
      {"import faulthandler; faulthandler.enable(); faulthandler.disable(); print(sys.stdout.name)", "6<stdout>"},
  };
  for (const auto& [body, told] : kBodies) EXPECT_EQ(Live(body + "; return [1]"), told) << body;
  const std::string late = R"(
t = threading.Thread(target=lambda: go.wait() and print('late'), daemon=True)
t.start()
atexit.register(lambda: go.set() or t.join())
atexit.register(print, 'exit')
)";
  EXPECT_EQ(Live("return [1]", "print('import'); go = threading.Event()" + late), "6import|6exit|6late");
  EXPECT_EQ(Live("print('left'); return [1]", "del sys.modules[__name__]"), "6left");
  EXPECT_EQ(Live("pass",
                 "import types; sys.modules[__name__] = m = types.ModuleType('m')\n"
                 "m.collect = lambda args: print('in its place') or [1]"),
            "6in its place");
  EXPECT_NE(Live("warnings.warn('told'); return [1]").find("UserWarning: told"), std::string::npos);
  const std::string traceback = Live("return [1 / 0]");
  EXPECT_EQ(traceback.rfind("3Traceback (most recent call last):|3  File \"" + dir_ / "s.py", 0), 0U) << traceback;
  EXPECT_NE(traceback.find("|3ZeroDivisionError: division by zero"), std::string::npos) << traceback;
  const std::string flood =
      Live("t = threading.Thread(target=sys.stdout.write, args=['x\\n' * 1234]); t.start(); t.join(); return [1]");
  EXPECT_EQ(flood, times(1000, "6x|") + "4lines of threads dropped: 234, since only 1000 wait for a callback");
}

TEST_F(OutputTest, PutsTheStreamsBack) {
  ASSERT_EQ(tev_python_environment_init(), 0);
  ASSERT_TRUE(Python("import sys; sys.before = sys.stdout, sys.stderr"));
  EXPECT_EQ(Live("sys.kept = sys.stdout; print('first', end=''); return [1]"), "6first");
  EXPECT_TRUE(Python("assert (sys.stdout, sys.stderr) == sys.before"));
  void* const library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
  for (int i = 0; i < 2; ++i) dlclose(library);  // the second one is the handle of Library(): the library stays
  testing::internal::CaptureStdout();
  EXPECT_TRUE(Python("print('between', file=sys.kept)"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "between\n");
  EXPECT_EQ(Live("print('next', file=sys.kept); return [1]"), "6next");
  Start({Script("off.py", "print('off'); return [1]")});
  EXPECT_TRUE(Collect().complete());
  EXPECT_TRUE(Python("assert (sys.stdout, sys.stderr) == sys.before")) << "a later life without the option";
  EXPECT_EQ(Told(), "");
  Finalize();
  EXPECT_EQ(tev_python_environment_finalize(), 0);
}

// A log function that does what it can to upset the plug-in, on no other thread than that of the callbacks.
TEST_F(OutputTest, SurvivesTheHostsLogFunction) {
  static std::thread::id driver;
  static int calls;
  static tev_event_provider_t* provider;
  static tev_data_serializer_t buffer;
  driver = std::this_thread::get_id();
  const tev_log_func_t kFunctions[] = {
      [](int, const char*) { std::this_thread::sleep_for(std::chrono::milliseconds(2)); },
      [](int, const char*) { Python("print('again')"); },
      [](int, const char* text) { std::thread([text] { EXPECT_EQ(text[0], '['); }).join(); },
      [](int, const char* text) {
        if (strncmp(text, "[python script]", 15) == 0) throw std::runtime_error("from the log function");
      },
      [](int, const char* text) {
        if (strncmp(text, "[python script]", 15) == 0) provider->progress(provider, 0, &buffer);
      },
  };
  for (const tev_log_func_t function : kFunctions) {
    static tev_log_func_t misbehave;
    misbehave = function;
    calls = 0;
    Configure({Script("s.py", R"py(print('one'); print('two'); return [1])py", R"(
import rubruf, threading, time
def run():
    while True: print('from a thread'); rubruf.log(6, 'logged there'); time.sleep(0.001)
threading.Thread(target=run, daemon=True).start()
)")},
              {{"python-import-log-output", "1"}, {"python-import-release-lock", "1"}});
    ASSERT_TRUE(Initialize());
    provider = provider_;
    const auto count = [](int level, const char* text) {
      EXPECT_EQ(std::this_thread::get_id(), driver);
      ++calls;
      misbehave(level, text);
    };
    set_log_func(count, TEV_LOG_INFO);
    for (int i = 0; i < 5; ++i) {
      EXPECT_TRUE(Collect().complete());
      usleep(3000);
    }
    EXPECT_GE(calls, 10);
    Finalize();
    set_log_func(nullptr, 0);
  }
}

// Has a script whose thread changes the result when the test says so, and answers.
class LockTest : public ProviderTest {
 protected:
  LockTest() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0); }
  ~LockTest() override {
    for (const int end : ends_) close(end);
  }

  std::string ThreadedScript(const std::string& result, const std::string& change) {
    return Script("s.py", "global R; R = " + result + "; return R", R"(
import os, threading
S = '\ud800' * 3
def run(end):
    while os.read(end, 1) == b's':
        )" + change + R"(
        os.write(end, b'd')
threading.Thread(target=run, args=[)" + std::to_string(ends_[0]) + "]).start()\n");
  }

  // Lets the thread change the result. False if it does not answer in so many milliseconds.
  bool Step(int patience = 20000) {
    pollfd answer{ends_[1], POLLIN, 0};
    char byte = 's';
    return write(ends_[1], &byte, 1) == 1 && poll(&answer, 1, patience) == 1 && read(ends_[1], &byte, 1) == 1;
  }

  // Ends the thread and the life.
  void End() {
    EXPECT_EQ(write(ends_[1], "e", 1), 1);
    Finalize();
  }

  int ends_[2];
};

TEST_F(LockTest, IsGivenBackBetweenCallbacks) {
  const std::string script = ThreadedScript("[1]", "pass");
  for (const bool released : {true, false}) {
    Start({script}, Keys(std::string("release-lock=") + (released ? "true" : "no")));
    EXPECT_EQ(Step(released ? 20000 : 50), released);
    EXPECT_EQ(SourceTags().size(), 1U);
    End();
    EXPECT_EQ(Problems(), Messages());
  }
}

// What is put in the place of a refused value may not be sendable. A tolerant script's key names all have their values.
TEST_F(LockTest, LetsThreadsChangeAResultThatIsBeingWritten) {
  for (const std::string change : {"R['a'] = 5", "del R['a']", "R.clear()", "R['a'].clear()", "R['l'].clear()",
                                   "R['a'] = None", "R['a']['x'] = None", "R['b'] = None; R['c'] = S",
                                   "R['a'] = R; R['b'] = None", "R['l'][0] = None; R['l'].append([])"}) {
    for (const bool tolerant : {true, false}) {
      const std::string omitted = tolerant ? "None" : "0";
      const std::string script = ThreadedScript(
          "{'a': {'x': 1, 'y': " + omitted + "}, 'b': 2, 'l': [{'z': " + omitted + "}, 3], 'e': 'end'}", change);
      const bool is_whole = tolerant || change.find("None") == std::string::npos;
      tev_progress_status_t status = TEV_PROGRESS_ERROR;
      size_t refused = 0;
      for (bool goes_on = true; goes_on; ++refused) {
        SCOPED_TRACE(testing::Message() << change << " at token " << refused << ", tolerant: " << tolerant);
        if (status != TEV_PROGRESS_DONE)
          Start({script}, Keys(std::string("release-lock=1;tolerant=") + "01"[tolerant]));
        buffer_.refuse = [number = size_t{0}, refused](const Token&) mutable { return number++ == refused; };
        status = Progress();
        goes_on = status == TEV_PROGRESS_REFUSED;
        if (goes_on) {
          EXPECT_TRUE(Step());
          status = Progress();
        }
        buffer_.refuse = nullptr;
        EXPECT_TRUE(status == TEV_PROGRESS_DONE || !is_whole);
        const std::vector<Token> tokens = buffer_.Drain();
        EXPECT_NO_THROW(tolerant ? standin::ToJsonLine("", tokens) : "");
        EXPECT_TRUE(!is_whole || tokens.back().type == standin::kDictEnd);
        if (status != TEV_PROGRESS_DONE) End();
      }
      if (status == TEV_PROGRESS_DONE) End();
      EXPECT_GT(refused, 14U);
    }
  }
}

TEST_F(LockTest, EndsWithItsLife) {
  const std::string good = Script("s.py", "return [1]");
  const auto holds_lock = Library().Symbol<int (*)()>("PyGILState_Check");
  ASSERT_EQ(tev_python_environment_init(), 0);
  const Options on = Keys("release-lock=1");
  Configure({good, dir_ / "gone.py"}, on);
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(holds_lock(), 1) << "after a start that failed";
  Start({good}, on);
  EXPECT_EQ(holds_lock(), 0);
  EXPECT_FALSE(Construct(Keys("num-scripts=0;file="))) << "takes the lock to drop the scripts";
  EXPECT_EQ(holds_lock(), 0);
  for (int i = 0; i < 2; ++i) Finalize();
  EXPECT_EQ(holds_lock(), 1) << "as before initialize";
  Start({good});
  EXPECT_EQ(holds_lock(), 1) << "a later life without the option";
  Finalize();
  EXPECT_EQ(tev_python_environment_finalize(), 0);

  Library().Symbol<void (*)(int)>("Py_InitializeEx")(0);
  Configure({good}, on);
  EXPECT_TRUE(Initialize());
  EXPECT_EQ(Problems(), Messages{Warning("the interpreter is the host's and keeps its lock")});
  EXPECT_EQ(holds_lock(), 1);
  Finalize();
  EXPECT_EQ(Library().Symbol<int (*)()>("Py_FinalizeEx")(), 0);
}

}  // namespace
