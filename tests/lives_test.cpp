// Tests of lives, one after the other in one process, with what an interpreter does not survive: extension modules, a
// change of threads, a fork.

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "tests/provider_test_base.h"

namespace {

int PythonInt(const char* function) { return Library().Symbol<int (*)()>(function)(); }

// Runs `live` in a thread with a stack of so many KiB.
void OnThread(size_t stack, std::function<void()> live) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack << 10);
  const auto run = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &live), 0);
  pthread_join(thread, nullptr);
}

class LivesTest : public ProviderTest {
 protected:
  // A script that loads an extension module from outside the standard library: a copy of one of its own.
  std::string ExtensionScript(const std::string& body, const std::string& more = "") {
    return Script("extended.py", body, R"(
import importlib.util, os, shutil
own = os.path.join(os.path.dirname(__file__), 'own', '_lsprof.so')
if not os.path.exists(own):
    os.mkdir(os.path.dirname(own))
    shutil.copy(importlib.util.find_spec('_lsprof').origin, own)
spec = importlib.util.spec_from_file_location('_lsprof', own)
importlib.util.module_from_spec(spec)
)" + more);
  }
};

struct LibraryCase {
  const char *name, *statement, *expression;
};
void PrintTo(const LibraryCase& library, std::ostream* out) { *out << library.name; }
class LibraryLivesTest : public LivesTest, public testing::WithParamInterface<LibraryCase> {};

// Ends each life with a stuck walk, and edits the files between lives.
TEST_P(LibraryLivesTest, BeginAgain) {
  const auto& [name, statement, expression] = GetParam();
  const std::string attempt = std::string("\nrest = 100\ntry: ") + statement + "\nexcept ImportError: rest = -1\n";
  for (const std::string life : {"1", "2", "3"}) {
    Write("helper.py", "edited = '" + life + "'");
    Start({Script("s.py",
                  "global rest; rest -= 1; return [repr(helper.edited) + str(" + std::string(expression) +
                      ") if rest >= 0 else None]",
                  "import helper" + attempt)});
    const std::string text = FirstText();
    if (text == "(none)") GTEST_SKIP() << name << " is not installed";
    EXPECT_EQ(text.substr(0, 3), "'" + life + "'");
    for (int i = 1; i < 100; ++i) EXPECT_EQ(FirstText(), text);
    EXPECT_EQ(Progress(), TEV_PROGRESS_ERROR);
    Finalize();
    EXPECT_EQ(PythonInt("Py_IsInitialized"), 1) << "stays";
  }
}

INSTANTIATE_TEST_SUITE_P(
    OfRealLibraries, LibraryLivesTest,
    testing::Values(LibraryCase{"numpy", "import numpy", "numpy.arange(9.0).mean()"},
                    LibraryCase{"lxml", "from lxml import etree", "etree.fromstring('<a>1</a>').text"},
                    LibraryCase{"yaml", "import yaml", "yaml.load('[1, {a: 2}]', yaml.CSafeLoader)"},
                    LibraryCase{"cryptography",
                                "from cryptography.fernet import Fernet; f = Fernet(Fernet.generate_key())",
                                "f.decrypt(f.encrypt(b'1'))"},
                    LibraryCase{"greenlet", "import greenlet", "greenlet.greenlet(lambda: 1).switch()"}),
    [](const auto& instance) { return std::string(instance.param.name); });

// Each life on a thread of its own, and the first one on two: what the interpreter offers does not change.
TEST_F(LivesTest, FindAnInterpreterThatStayedAsGoodAsNew) {
  const std::string script = ExtensionScript("return [' '.join(map(str, state()))]", R"(
import atexit, sys, threading, weakref
from concurrent.futures import ThreadPoolExecutor
def note(text):
    with open(os.path.join(os.path.dirname(__file__), 'notes'), 'a') as file: file.write(text)
class Object: pass
kept = Object()
atexit.register(note, 'a')
weakref.finalize(kept, note, 'w')
found = len(sys.path), sys.stdout is not None
sys.stdout = None
sys.path.insert(0, '/nowhere')
pool = ThreadPoolExecutor(2)
def state(): return *found, list(pool.map(abs, [-1, -2])), threading.main_thread() is threading.current_thread()
)");
  std::string first;
  std::string notes;
  for (int life = 0; life < 4; ++life) {
    const auto live = [&] {
      Start({script});
      const std::string text = FirstText();
      if (first.empty()) first = text;
      EXPECT_EQ(text, first) << life;
      Finalize();
      EXPECT_EQ(PythonInt("PyGILState_Check"), 0);
    };
    if (life < 2) live();
    if (life >= 2) OnThread(768, live);
    EXPECT_EQ(ReadFile(dir_ / "notes"), notes += "wa") << life;
    int told = 0;
    for (const auto& [level, text] : log_.Take()) {
      EXPECT_GT(level, TEV_LOG_WARNING) << text;
      told += level == TEV_LOG_INFO &&
              text.find(script + " has imported the extension module " + dir_ / "own/") != std::string::npos;
    }
    EXPECT_EQ(told, 1);
  }
  EXPECT_NE(first.find("True [1, 2] True"), std::string::npos) << first;
}

// A thread of a script is not there in the child, nor does its pool end.
TEST_F(LivesTest, EndInAForkedChildToo) {
  Start({Script("s.py", "return [pool.submit(str, 1).result()]", R"(
import threading, time
from concurrent.futures import ThreadPoolExecutor
pool = ThreadPoolExecutor(2)
threading.Thread(target=time.sleep, args=[0.2]).start()
)")});
  EXPECT_EQ(FirstText(), "1");
  const auto child = [this] {
    alarm(20);
    Finalize();
    Configure({Script("t.py", "return ['again']")});
    const bool again = Initialize() && FirstText() == "again";
    Finalize();
    _exit(again ? 0 : 1);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(FirstText(), "1");
}

TEST_F(LivesTest, WriteOutWhatScriptsPrinted) {
  const std::string plain = Script("plain.py", "print('größe'); return [1]");
  const std::string threaded = Script("threaded.py", "print('größe'); return [1]", R"(
import threading
threading.Thread(target=threading.Event().wait, daemon=True).start()
)");
  unsetenv("PYTHONUNBUFFERED");
  for (const bool hosts : {false, true}) {
    for (const char* locale : {"C", "C.UTF-8"}) {
      const auto live = [&] {
        setenv("LC_ALL", locale, 1);
        dup2(open((dir_ / "out").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), 1);
        if (hosts) Library().Symbol<void (*)(int)>("Py_InitializeEx")(0);
        Start({hosts ? plain : threaded});
        FirstText();
        Finalize();
        _exit(0);
      };
      EXPECT_EXIT(live(), testing::ExitedWithCode(0), "");
      EXPECT_EQ(ReadFile(dir_ / "out"), hosts && locale[1] == '\0' ? "" : "größe\n") << hosts << locale;
    }
  }
  Library().Symbol<void (*)(int)>("Py_InitializeEx")(0);
  Start({Script("s.py", "pass", "import sys\nsys.stdout = open('/dev/full', 'w')\nprint(1)")});
  Finalize();
  EXPECT_EQ(Problems(), (Messages{messages::EnvironmentError("errors while finalizing python environment"),
                                  messages::Error("could not finalize python environment")}));
}

TEST_F(LivesTest, AreRefusedBesideAnotherLibpython) {
  Configure({Script("s.py", "return [1]")});
  void* const other = dlopen(RUBRUF_OTHER_PYTHON_PATH, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(other, nullptr) << dlerror();
  EXPECT_FALSE(Initialize());
  const Messages problems = Problems();
  ASSERT_EQ(problems.size(), 2U);
  EXPECT_EQ(
      problems[0].second.find("[python environment] the process has Python 2.7.99, and this library is made for 3."),
      0U);
}

}  // namespace
