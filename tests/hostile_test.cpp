// Tests of scripts that do what they can to break the plug-in.

#include <unistd.h>

#include <set>

#include "tests/provider_test_base.h"
#include "utils/python_env/python_env.h"

namespace {

using namespace messages;
using namespace std::string_literals;
using HostileTest = ProviderTest;
using Tags = std::vector<std::string>;

TEST_F(HostileTest, IsReadWithoutACallOfOverriddenMethods) {
  Start({Script("s.py", "return collect_hostile()", R"(
called, armed, calls = [], False, 0
def hostile(base, **more):
    def trap(name):
        def method(self, *args, **named):
            if not armed: return getattr(base, name)(self, *args, **named)
            called.append(base.__name__ + '.' + name)
            raise RuntimeError(name)
        return method
    kept = ('__new__', '__init__', '__init_subclass__', '__subclasshook__', '__class_getitem__', 'fromkeys', 'maketrans',
            'fromhex', 'from_bytes', '__getformat__', '__set_format__', '__class__', '__doc__')
    names = (set(dir(base)) | {'__bool__', '__index__', '__int__', '__float__', '__call__'}) - set(kept)
    return type('H' + base.__name__, (base,), dict({name: trap(name) for name in names}, **more))
S, F, I, L, D = map(hostile, (str, float, int, list, dict))
O = hostile(object, __class__=property(lambda self: dict))
def collect_hostile():
    global armed, calls
    armed, calls = False, calls + 1
    result = [lambda: L([D({S('k'): S('s'), 'f': F(2.5)}), I(7), D(), {'l': L([I(1)])}]),
              lambda: D({S('k'): D({S('k'): S('\u00e4'), 'l': L([D()])})}),
              lambda: [S(called), calls], lambda: {'o': O()}][calls - 1]()
    armed = calls != 3
    return result
)")});
  EXPECT_EQ(Json(), R"([{"k": "s", "f": 2.5}, 7, {}, {"l": [1]}])");
  EXPECT_EQ(Json(), R"({"k": {"k": "ä", "l": [{}]}})");
  EXPECT_EQ(Json(), R"(["[]", 3])") << "those called";
  EXPECT_EQ(Json(), "error") << "an object that says it is a dictionary";
}

TEST_F(HostileTest, MayRaiseAnyExceptionAnywhere) {
  RUBRUF_IMPORT(tev_python_environment_init);
  RUBRUF_IMPORT(tev_python_environment_get_module);
  RUBRUF_IMPORT(tev_python_environment_finalize);
  Write("errors.py", R"(
import io, sys
sys.stderr = io.StringIO()
def known(base): return {base}.union(*map(known, base.__subclasses__()))
def make(kind):
    for args in ((), ('x',), ('x', [ValueError()]), ('utf-8', b'', 0, 1, ''), ('', 0, 1, '')):
        try: return kind(*args)
        except TypeError: pass
made = list(filter(None, map(make, known(BaseException) - {SystemExit})))
left = {}
def raise_next(place):
    ends_the_process = place in ('import', 'collect')
    for error in left.setdefault(place, iter(made + [SystemExit(9)][ends_the_process:])): raise error
)");
  const std::string raising = Write("raising.py", "import errors; errors.raise_next('import')");
  const std::string script = Write("s.py", R"(
import atexit, errors
class Result(dict):
    def __del__(self): errors.raise_next('del')
late = Result()
for _ in errors.made + [None]: atexit.register(errors.raise_next, 'atexit')
def get_tag(): errors.raise_next('get_tag'); return ''
def get_app_id(): errors.raise_next('get_app_id'); return ''
def collect(args): errors.raise_next('collect'); return Result(a=1)
def leave(args): raise SystemExit(7)
)");
  ASSERT_EQ(tev_python_environment_init(), 0);
  int kinds = 0;
  while (kinds < 200 && tev_python_environment_get_module(raising.c_str()) == nullptr) ++kinds;
  EXPECT_TRUE(50 < kinds && kinds < 200) << kinds;
  Start(Tags(256, script));
  EXPECT_EQ(SourceTags(), Tags(256, HashTag(script)));
  for (int i = 0; i < 2 * kinds + 2; ++i) EXPECT_EQ(Json(), i < kinds ? "error" : R"({"a": 1})") << i;
  EXPECT_EQ(Problems(), Messages());
  Finalize();
  EXPECT_EQ(tev_python_environment_finalize(), 0);
  Start({script}, {{"python-import-function", "leave"}});
  EXPECT_EXIT(Progress(), testing::ExitedWithCode(7), "") << "printing it ends the process";
}

TEST_F(HostileTest, MayReturnAnySizeAndDepth) {
  Start({Script("s.py",
                "return {'text': 'x' * 100_000_000, **{'k%d' % i: i for i in range(1_000_000)}, 'deep': deep()}", R"(
def deep():
    value = {}
    for _ in range(100_000): value = {'d': value}
    return value
)")});
  const std::vector<standin::Token> tokens = Collect().tokens;
  ASSERT_EQ(tokens.size(), 3 + 2 + 2'000'000 + 1 + 300'002);
  EXPECT_EQ(tokens[3].payload, std::string(100'000'000, 'x'));  // NOLINT(bugprone-string-constructor): so long it is
  std::set<uint32_t> numbers;
  for (const standin::Token& token : tokens) numbers.insert(token.key_id);
  EXPECT_EQ(numbers.size(), 1'000'004U) << "a number for each key, and one for no key";
}

// Each in a process of its own, which a script may spoil.
TEST_F(HostileTest, MaySpoilItsInterpreter) {
  const std::string unharmed = "[1]error[3]";
  const std::string no_use = "errorerrorerror";
  const std::pair<std::string, std::string> kCases[] = {
      {"sys.stdin = sys.stdout = sys.stderr = None", unharmed},
      {"sys.stdin = sys.stdout = sys.stderr = object()", unharmed},
      {"del sys.stdin, sys.stdout, sys.stderr", unharmed},
      {"sys.stdin.close(); sys.stdout.close(); sys.stderr.close()", unharmed},
      {"os.close(0); os.close(1); os.close(2)", unharmed},
      {"sys.stderr = sys.stdout = open('/dev/full', 'w'); print('buffered')", unharmed},
      {"print('buffered'); sys.stdout.flush = None; sys.stderr.write = lambda text: 1 / 0", unharmed},
      {"sys.excepthook = sys.unraisablehook = None", unharmed},
      {"sys.excepthook = lambda *args: 1 / 0", unharmed},
      {"sys.setrecursionlimit(50)", unharmed},
      {"threading.Thread(target=time.sleep, args=(0.05,)).start()", unharmed},
      {"sys.modules.clear()", no_use},
      {"sys.modules = sys.path = sys.meta_path = None", no_use},
      {"sys.__dict__.clear()", no_use},
      {"import builtins; builtins.__dict__.clear()", no_use},
      {"globals().clear()", no_use},
      {"sys.settrace(lambda *args: 1 / 0)", no_use},
  };
  const std::string plain = Script("plain.py", "return [1]");
  for (const auto& [statements, expected] : kCases) {
    const auto live = [&, script = statements] {
      Start({Script("s.py", "calls.append(1); return [len(calls) // (len(calls) % 2)]",
                    "import os, sys, threading, time\ncalls = []\n" + script)});
      std::string results;
      for (int call = 0; call < 3; ++call) results += Json();
      Finalize();
      Start({plain});
      Write("results", results + " " + Json());
      Finalize();
      _exit(0);
    };
    Write("results", "");
    EXPECT_EXIT(live(), testing::ExitedWithCode(0), "") << statements;
    EXPECT_EQ(ReadFile(dir_ / "results"), expected + " [1]") << statements;
  }
}

}  // namespace
