// Tests of the life cycle: the Python environment, the binding of scripts, tags, the application ID, and finalize.

#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/provider_test_base.h"
#include "utils/python_env/python_env.h"

// The loader finds these functions before libpython's, so that a test can make a start of the interpreter look failed.
static bool seems_down = false;
static bool seems_old = false;
extern "C" const char* Py_GetVersion() {
  return seems_old ? "3.7.1" : Library().Symbol<const char* (*)()>("Py_GetVersion")();
}
extern "C" int Py_IsInitialized() { return seems_down ? 0 : Library().Symbol<int (*)()>("Py_IsInitialized")(); }

namespace {

using namespace messages;
using EnvironmentTest = ProviderTest;
using LifecycleTest = ProviderTest;
using Tags = std::vector<std::string>;

RUBRUF_IMPORT(tev_python_environment_init);
RUBRUF_IMPORT(tev_python_environment_is_set);
RUBRUF_IMPORT(tev_python_environment_print_error);
RUBRUF_IMPORT(tev_python_environment_get_module);
RUBRUF_IMPORT(tev_python_environment_finalize);

TEST_F(EnvironmentTest, CountsItsUsers) {
  tev_python_environment_print_error();
  EXPECT_EQ(tev_python_environment_get_module("a.py"), nullptr);
  EXPECT_EQ(log_.Take(), Messages{EnvironmentError("Python environment was not initialized")});
  const auto own = [](int) {};
  for (const int number : {SIGINT, SIGPIPE}) signal(number, SIG_DFL);
  for (int period = 0; period < 2; ++period) {
    EXPECT_EQ(tev_python_environment_is_set(), 0);
    EXPECT_EQ(tev_python_environment_finalize(), 0);
    EXPECT_EQ(tev_python_environment_init(), 0);
    EXPECT_EQ(tev_python_environment_init(), 0);
    EXPECT_EQ(tev_python_environment_finalize(), 0);
    EXPECT_EQ(tev_python_environment_is_set(), 1);
    EXPECT_TRUE(Python("import signal"));
    for (const int number : {SIGINT, SIGPIPE})
      EXPECT_EQ(signal(number, own), SIG_DFL) << "Python must not set the host's handlers";
    EXPECT_EQ(tev_python_environment_finalize(), 0);
    EXPECT_EQ(Py_IsInitialized(), 0);
    for (const int number : {SIGINT, SIGPIPE}) EXPECT_EQ(signal(number, SIG_DFL), own) << "nor reset them";
  }
}

TEST_F(EnvironmentTest, ImportsByNameFromTheFilesDirectory) {
  for (const char* name : {"a", "b"}) std::filesystem::create_directories(dir_ / name);
  const Tags files{Script("a/same.py", "pass"), Script("b/same.py", "pass"), Script("bare.py", "pass"),
                   Write("raising.py", "raise ValueError('told')"), Write("leaving.py", "raise SystemExit(7)")};
  ASSERT_EQ(chdir((dir_ / "").c_str()), 0);
  ASSERT_EQ(tev_python_environment_init(), 0);
  PyObject* const module = tev_python_environment_get_module(files[0].c_str());
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(tev_python_environment_get_module(files[1].c_str()), module) << "a module is found by its name alone";
  EXPECT_NE(tev_python_environment_get_module("bare.py"), nullptr);
  EXPECT_EQ(tev_python_environment_get_module("a/same.py"), module);
  EXPECT_TRUE(Python("import sys; assert sys.path[-4:] == ['" + dir_ / "a" + "', '" + dir_ / "b" + "', '.', 'a']"));
  EXPECT_EXIT(tev_python_environment_get_module(files[4].c_str()), testing::ExitedWithCode(7), "");

  testing::internal::CaptureStderr();
  EXPECT_EQ(tev_python_environment_get_module("raising.py"), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ValueError: told"), std::string::npos);
  EXPECT_EQ(tev_python_environment_get_module(nullptr), nullptr);
  EXPECT_EQ(log_.Take(),
            (Messages{EnvironmentError("Could not import raising"), EnvironmentError("python_file is NULL")}));
  for (const char* path : {"", "/", "py", ".py", "a/.py", "module.PY", "module.py.bak", "module.py/x"}) {
    EXPECT_EQ(tev_python_environment_get_module(path), nullptr) << path;
    EXPECT_EQ(log_.Take(), Messages{EnvironmentError("Invalid input - file name should contain '.py' postfix")});
  }
  EXPECT_TRUE(Python("sys.path = None"));
  EXPECT_EQ(tev_python_environment_get_module("bare.py"), nullptr);
  EXPECT_EQ(log_.Take(), Messages{EnvironmentError("Could not add file location to PYTHONPATH")});
  EXPECT_EQ(tev_python_environment_finalize(), 0);
}

TEST_F(EnvironmentTest, ImportsFromDirectoriesOfAnyName) {
  const char* const kNames[] = {"it's",        "back\\slash", "trailing\\",
                                "line\nbreak", "quote\"s",    "\xff\xfe",
                                "\u00e4",      "%s{}",        "'); import os; os._exit(9); ('"};
  Tags scripts;
  for (const std::string name : kNames) {
    std::filesystem::create_directories(dir_ / name);
    scripts.push_back(Script(name + "/s" + std::to_string(scripts.size()) + ".py", "return [__name__]"));
  }
  scripts.push_back(Script("s9.py", "return [__name__] if '.so' in _ctypes.__file__ else []", "import _ctypes"));
  for (const char* name : {"gr\u00f6\u00dfe.py", "\xff.py"}) {
    scripts.push_back(Script(name, "return ['s" + std::to_string(scripts.size()) + "']"));
  }
  for (const char* locale : {"C", "C.UTF-8"}) {
    setenv("LC_ALL", locale, 1);
    Start(scripts);
    for (uint32_t i = 0; i < scripts.size(); ++i) EXPECT_EQ(FirstText(i), "s" + std::to_string(i)) << scripts[i];
    Finalize();
  }
}

TEST_F(LifecycleTest, AbortsInitializationWithMessagesInOrder) {
  const std::string good = Script("good.py", "return [1]");
  const std::string raising = Write("raising.py", "1 / 0");
  const std::string bad_id = Script("bad_id.py", "return [1]", "def get_app_id(): return '42'");
  const auto abort = [&](const std::string& path, const char* keys, Messages messages) {
    Configure({good, path}, Keys(keys));
    EXPECT_FALSE(Initialize()) << path;
    messages.push_back(Error("aborting initialization"));
    EXPECT_EQ(log_.Take(), messages) << path << keys;
    EXPECT_EQ(tev_python_environment_is_set(), 0);
    EXPECT_EQ(SourceTags(), Tags()) << "two scripts are counted, but both are released";
    log_.Take();
    EXPECT_EQ(Progress(), TEV_PROGRESS_ERROR);
    EXPECT_EQ(log_.Take(), Messages{Error("internal error - invalid index/script configuration object not exist")});
    Finalize();
  };
  abort("gone.py", "", {EnvironmentError("Could not import gone"), Error("could not load module")});
  abort(raising, "", {EnvironmentError("Could not import raising"), Error("could not load module")});
  for (const std::string& path : {dir_ / "gone.py", raising}) {
    testing::internal::CaptureStderr();
    abort(path, "own-module=1",
          {EnvironmentError("Could not import " +
                            path.substr(path.rfind('/') + 1, path.rfind('.') - path.rfind('/') - 1)),
           Error("could not load module")});
    EXPECT_NE(testing::internal::GetCapturedStderr().find(path), std::string::npos) << "the traceback names the file";
  }
  abort(good, "2-function=none", {Error("could not load python collection function")});
  abort(good, "arg-x=\xff", {});
  abort(good, "arg-\xff=x", {});
  abort(bad_id, "", {Error("ignoring invalid app ID (from " + bad_id + ")")});
  for (const auto function : {&standin::Faults::type_system_add_schema, &standin::Faults::opaque_events_create}) {
    standin::faults.*function = 1;
    abort(good, "", {Error("could not create schema")});
  }
  Configure({good});
  seems_down = true;
  EXPECT_FALSE(Initialize());
  seems_down = false;
  EXPECT_EQ(log_.Take(),
            (Messages{EnvironmentError("Py_IsInitialized returned 0"), Error("could not start python environment")}));
  seems_old = true;
  EXPECT_FALSE(Initialize());
  seems_old = false;
  EXPECT_EQ(log_.Take().size(), 2U);
  EXPECT_TRUE(Initialize()) << "the script is still configured";
  EXPECT_TRUE(Collect().complete());
  EXPECT_EQ(buffer_.last_write->app_id[0], 0) << "the refused ID has left no bytes";
  Finalize();
  Start({good}, Keys("function=__name__"));
  EXPECT_EQ(Progress(), TEV_PROGRESS_ERROR) << "an object that cannot be called is bound too";
}

TEST_F(LifecycleTest, ChoosesEachTagOnce) {
  using namespace std::string_literals;
  const std::string path = Script("s.py", "return [1]", R"py(
class Text(str): pass
answers = iter(["'disk'", r"'\u00e4\0b'", "''", "1 / 0", "5", "None", "Text('x')", r"'\ud800'"])
def get_tag(): return eval(next(answers)))py");
  const std::string hash = HashTag(path);
  const auto refusal = [](const std::string& type) {
    return std::pair{TEV_LOG_WARNING, "invalid type returned from get_tag(). expected 'str', got '" + type + "'"};
  };
  Start(Tags(9, path), Keys("2-tag=option"));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(SourceTags(), (Tags{"dict_disk", "dict_option", "dict_\u00e4\0b"s, hash, hash, hash, hash, hash, hash}));
    EXPECT_EQ(Problems(), round == 0 ? (Messages{refusal("int"), refusal("NoneType"), refusal("Text")}) : Messages());
    EXPECT_TRUE(Collect().complete()) << "get_tag has left an error";
  }
  for (const char* definition :
       {"", "get_tag = 'tag'", "def get_tag(more): return 'tag'", "def get_tag(): return 'late'"}) {
    Finalize();
    Configure({Script("s.py", "return [1]", definition)});
    if (strstr(definition, "late")) SourceTags();  // before the script can be asked
    ASSERT_TRUE(Initialize());
    EXPECT_EQ(SourceTags(), Tags{hash}) << definition;
    EXPECT_EQ(Problems(), Messages());
  }
}

TEST_F(LifecycleTest, ChoosesTheApplicationIdOnce) {
  const auto id_with = [&](const std::string& answers, const std::string& keys = "") {
    const std::string path = Script("s.py", "return [1]",
                                    "answers = iter(\"" + answers +
                                        "\".split(';'))\n"
                                        "def get_app_id(): return eval(next(answers))");
    Finalize();
    Configure(Tags(6, path), Keys(keys));
    EXPECT_TRUE(Initialize());
    EXPECT_TRUE(Collect().complete());
    const auto& context = *buffer_.last_write;
    EXPECT_EQ(context.schema->name + std::to_string(context.schema->number), "python_provider1");
    return std::string(context.app_id.begin(), context.app_id.end());
  };
  EXPECT_EQ(id_with("'';1 / 0"), std::string(16, '\0'));
  EXPECT_EQ(log_.Take(), Messages());
  EXPECT_EQ(id_with("'no';7;'41424344-4546-4748-494a-4b4c4d4e4f50';'not asked'"), "ABCDEFGHIJKLMNOP");
  EXPECT_EQ(log_.Take(),
            (Messages{Error("ignoring invalid app ID (from " + dir_ / "s.py" + ")"),
                      {TEV_LOG_WARNING, "invalid type returned from get_app_id(). expected 'str', got 'int'"}}));
  EXPECT_EQ(id_with("'no'"), "ABCDEFGHIJKLMNOP") << "the ID does not change later";
  EXPECT_EQ(id_with("'no'", "app-id=61626364-6566-6768-696a-6b6c6d6e6f70"), "abcdefghijklmnop");
  EXPECT_EQ(log_.Take(), Messages());
}

TEST_F(LifecycleTest, ReleasesEveryReference) {
  const std::string path = Write("counted.py", R"(
import sys, weakref
class Text(str): pass
app_id = '-'.join(['41424344-4546-4748', '494a-4b4c4d4e4f50'])
result, fresh, kept, answer = ['x', {'y': 1}], {}, None, None
def collect(args): global kept; kept = args; return result
def get_app_id(): return app_id
def get_tag(): global answer; text = Text('t'); answer = weakref.ref(text); return text
def count(): return [sys.getrefcount(x) for x in (sys.modules[__name__], globals(), collect, get_tag, app_id, result, *result)]
)");
  ASSERT_EQ(tev_python_environment_init(), 0);
  ASSERT_TRUE(Python("import sys; sys.path.append('" + dir_ / "" + "'); import counted; before = counted.count()"));
  const std::string balanced = "assert counted.count() == before, (counted.count(), before)";
  for (const bool stuck : {false, true, false}) {
    Start({path, path});
    SourceTags();
    buffer_.refuse = [=](const standin::Token& token) { return stuck && token.type == standin::kDictStart; };
    EXPECT_EQ(Progress(1), stuck ? TEV_PROGRESS_REFUSED : TEV_PROGRESS_DONE);
    EXPECT_EQ(buffer_.Drain()[0].type, standin::kNewCollection) << "finalize has ended the last walk";
    for (int i = 0; i < 3; ++i) Finalize();
    EXPECT_TRUE(Python(balanced + "\nassert sys.getrefcount(counted.kept) == sys.getrefcount(counted.fresh)"));
    EXPECT_TRUE(Python("assert counted.answer() is None"));
  }
  for (const char* failing : {"function=none", "arg-x=\xff"}) {
    Configure({path}, Keys(failing));
    EXPECT_FALSE(Initialize());
    EXPECT_TRUE(Python(balanced)) << failing;
  }
  Configure({path});
  Finalize();
  EXPECT_EQ(tev_python_environment_is_set(), 1) << "the test uses the interpreter too";
  EXPECT_EQ(tev_python_environment_finalize(), 0);
  EXPECT_EQ(tev_python_environment_is_set(), 0);
}

// Each value is tried in a new process, because a failed start may leave CPython partly initialized.
TEST_F(LifecycleTest, SurvivesAnEnvironmentThatPythonRefuses) {
  const std::pair<const char*, bool> kValues[] = {{"PYTHONHASHSEED=x", false},        {"PYTHONMALLOC=x", false},
                                                  {"PYTHONIOENCODING=x", false},      {"PYTHONTRACEMALLOC=x", false},
                                                  {"PYTHONINTMAXSTRDIGITS=x", false}, {"PYTHONHOME=/nowhere", false},
                                                  {"PYTHONTRACEMALLOC=5", true}};
  Configure({Script("s.py", "return [1]")});
  for (const auto& [variable, starts] : kValues) {
    const auto live = [&, variable = std::string(variable), starts = starts] {
      putenv(strdup(variable.c_str()));
      for (int life = 0; life < 2; ++life) {
        if (Initialize() != starts) _exit(1);
        const Messages messages = log_.Take();
        if (!starts && (messages.size() != 3 || messages[1] != EnvironmentError("Py_IsInitialized returned 0")))
          _exit(2);
        if (!starts && messages[0].second.rfind("[python environment] Python did not start: ", 0) != 0) _exit(3);
        Finalize();
        Configure({dir_ / "s.py"});
      }
      _exit(0);
    };
    EXPECT_EXIT(live(), testing::ExitedWithCode(0), "") << variable;
  }
}

// A thread may still run when a life ends. It needs its interpreter, so the interpreter is kept. When no such thread is
// left, the next finalize stops the interpreter.
TEST_F(LifecycleTest, KeepsTheInterpreterForRunningThreads) {
  const std::string common = R"(
import atexit, sys, threading, time
stop = sys.stop = getattr(sys, 'stop', threading.Event())
def run():
  while not stop.wait(0.001): pass
def start(target): threading.Thread(target=target, daemon=True).start()
def join(): [thread.join() for thread in threading.enumerate() if thread.daemon]
)";
  const auto script = [&](const std::string& name, const std::string& more) {
    return Script(name, "return [1]", common + more);
  };
  const std::string ending = script("ending.py", "threading.Thread(target=time.sleep, args=[0.01]).start()");
  const std::string pooled = script("pooled.py", R"(
own = threading.Event()
start(own.wait)
atexit.register(own.set)
)");
  const std::string late = script("late.py", "atexit.register(lambda: start(run))");
  const std::string staying = script("staying.py", "start(run)");
  const std::string last = script("last.py", "stop.set(); join()");
  const std::pair<std::string, bool> kLives[] = {{ending, false}, {pooled, false}, {ending, false}, {late, true},
                                                 {staying, true}, {pooled, true},  {last, false}};
  bool stayed = false;
  for (const auto& [path, stays] : kLives) {
    Start({path});
    EXPECT_TRUE(Collect().complete());
    EXPECT_EQ(Python("import sys; assert not hasattr(sys, 'life'); sys.life = 1"), !stayed) << path;
    Finalize();
    const Messages problems = Problems();
    ASSERT_EQ(problems.size(), stays ? 1U : 0U) << path;
    EXPECT_TRUE(!stays || problems[0].second.find(" of " + dir_ / "") != std::string::npos) << problems[0].second;
    EXPECT_EQ(Library().Symbol<int (*)()>("Py_IsInitialized")(), stays ? 1 : 0) << path;
    stayed = stays;
    usleep(20000);
  }
}

TEST_F(LifecycleTest, LeavesAnInterpreterOfTheHostRunning) {
  Library().Symbol<void (*)(int)>("Py_InitializeEx")(0);
  void* const state = Library().Symbol<void* (*)()>("PyEval_SaveThread")();
  Configure({Script("s.py", "return [1]")});
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log_.Take(), (Messages{EnvironmentError("an interpreter runs, and this thread does not hold its lock"),
                                   Error("could not start python environment")}));
  Library().Symbol<void (*)(void*)>("PyEval_RestoreThread")(state);
  EXPECT_TRUE(Initialize());
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(Problems(), Messages{Error("already initialized")});
  EXPECT_TRUE(Collect().complete());
  EXPECT_EQ(tev_python_environment_init(), 0) << "the host uses the interpreter too";
  Finalize();
  Library().Symbol<void (*)(void*, const char*)>("PyErr_SetString")(*Library().Symbol<void**>("PyExc_ValueError"), "");
  Finalize();
  EXPECT_NE(Library().Symbol<void* (*)()>("PyErr_Occurred")(), nullptr) << "a second finalize cleared the host's error";
  Library().Symbol<void (*)()>("PyErr_Clear")();
  EXPECT_TRUE(Python("import s"));
  EXPECT_EQ(tev_python_environment_finalize(), 0);
  EXPECT_EQ(Library().Symbol<int (*)()>("Py_FinalizeEx")(), 0);
}

// A walk may own the last reference to an object. If the interpreter has stopped or the library is unloaded, it must
// not be decremented.
TEST_F(LifecycleTest, AbandonsTheWalkWithoutAnInterpreter) {
  const auto hold_alone = [this] {
    Start({Script("s.py", "return result", R"(
class Key(str): __del__ = print
class Value(int): __del__ = print
inner = {Key('k'): Value(7)}
result = [{'a': {'b': [inner]}}]
def get_tag(): result[0].clear(); result.clear(); globals().pop('inner').clear(); return ''
)")});
    buffer_.refuse = [](const standin::Token& token) { return token.type == standin::kLong; };
    EXPECT_EQ(Progress(), TEV_PROGRESS_REFUSED);
    EXPECT_EQ(SourceTags().size(), 1U);
    log_.Take();
  };
  for (const bool stopped : {false, true}) {
    const auto unload = [&] {
      hold_alone();
      if (stopped) tev_python_environment_finalize();
      void* const library = dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
      dlclose(library);
      dlclose(library);  // the handle of Library()
      _exit(dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr ? 0 : 1);
    };
    EXPECT_EXIT(unload(), testing::ExitedWithCode(0), "") << stopped;
  }
  hold_alone();
  EXPECT_EQ(tev_python_environment_finalize(), 0) << "one call more than its users";
  Finalize();
  EXPECT_EQ(log_.Take(), Messages());
}

TEST_F(LifecycleTest, SurvivesAnInterpreterThatEndsBadly) {
  Start({Script("leaving.py", "return raise_it(args)", "def raise_it(args): raise SystemExit(7)")});
  const auto leave = [this] {
    static const auto finalize = [this] { Finalize(); };
    atexit([] { finalize(); });
    Progress();
  };
  EXPECT_EXIT(leave(), testing::ExitedWithCode(7), "") << "finalize in an atexit function, after Python has stopped";
  Finalize();
  Start({Script("s.py", "pass",
                "import sys\nclass Out:\n  def flush(self): 1 / 0\n  closed = False\nsys.stdout = Out()")});
  Finalize();
  EXPECT_EQ(log_.Take(), (Messages{EnvironmentError("errors while finalizing python environment"),
                                   Error("could not finalize python environment")}));
}

}  // namespace
