// rubruf-host, run as its users run it: what it prints, and its exit status.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "tests/provider_test_base.h"

namespace {

class ToolTest : public ::testing::Test {
 protected:
  ToolTest() {
    // Freed memory is to look free; and the tool unloads CPython, which keeps some to the end of the process.
    setenv("ASAN_OPTIONS", "quarantine_size_mb=0:detect_leaks=0:handle_segv=0", 1);
    setenv("PYTHONDONTWRITEBYTECODE", "1", 1);  // a changed script is imported anew, whatever the clock's grain
    std::filesystem::create_directory(dir_ / "b");
  }

  void Write(const std::string& name, const std::string& text) { std::ofstream(dir_ / name) << text; }

  // Runs the tool in the test's directory; its output, both kinds unless told otherwise, ends with its exit status.
  std::string Run(const std::string& arguments, const std::string& redirection = "2>&1",
                  const std::string& before = "") {
    const std::string command = "cd " + dir_ / "" + "; " + before + RUBRUF_HOST_PATH " " + arguments;
    const std::string loaded = " --library " + LibraryPath() + " ";
    // NOLINTNEXTLINE(cert-env33-c): the command is ours
    FILE* pipe = popen((command + (arguments.find("options") == 0 ? " " : loaded) + redirection).c_str(), "r");
    std::string out;
    for (int c = 0; (c = fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    return out + "status " + std::to_string(WEXITSTATUS(pclose(pipe)));
  }

  static void ExpectAll(const std::vector<std::string>& texts, const std::string& out) {
    for (const auto& text : texts) EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
  }

  TempDir dir_;
};

TEST_F(ToolTest, CheckNamesEveryFaultOfAResultWithItsPlace) {
  const std::string e = "error: dict_x: ";
  const std::string w = "warning: dict_x: ";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      // what the script returns; what is said of it
      {"{'disks': [{}, {'name': None, 'size': (1,), 'raw': b''}]}",
       {e + "disks[1].name: None is not supported", e + "disks[1].size: the type tuple", e + "disks[1].raw: the type"}},
      {"[1, [2, {'a': [[None]]}]]",
       {e + "[1]: a list in a list", e + "[1][1].a[0]: a list in a list", e + "[1][1].a[0][0]: None is not"}},
      {"{'a b': {5: object(), 10 ** 5000: 1, '\\ud800': '\\udc80'}}",
       {e + "['a b']: the key 5 is not text: make it a str, 2 times", e + "['a b'][5]: the type object",
        e + "['a b']: the key '\\ud800' has no UTF-8", e + "['a b']['\\ud800']: the text '\\udc80' has no UTF-8"}},
      {"[{'v': [None] * 2000, 'w': b''}, {'v': [None]}]",
       {e + "[0..1].v[0..1999]: None is not supported: leave it out, or give a value that stands for it, 2,001 times",
        e + "[0].w: the type bytes"}},
      {"[type('T\\x1b]0;title\\x07\\x85\\n1 script: 0 errors', (), {})()]",
       {e + "[0]: the type T\\x1b]0;title\\x07\\x85\\x0a1 script: 0 errors is not"}},
      {"[type('int64', (), {'__module__': 'numpy'})()]",
       {e + "[0]: the type int64 is not supported: call its .item()"}},
      {"7", {e + "the result: the type int is not supported: return a list or dictionary"}},
      {"LOOP", {e + "up[0]: circular reference"}},
      {"DEEP", {e + "a.a.a.", ".a.end: None is not supported"}},
      {"{'n': [2 ** 63, -2 ** 63, 2 ** 63 - 1], 'a\\0b': 1, 'a\\0c': 2}",
       {", 13 tokens\n", w + "n[0]: an integer of more", w + "the result: the keys 'a\\x00b' and", "status 0"}},
      {"Odd({'a': [True, 1.5, Odd()], Text('b'): Text('c'), 'again': [ONE, ONE]})",
       {"x.py\n  collect(p=v=w), tag from the options: ", "status 0"}},
      {"1 / 0", {e + "x.py:8, in collect: ZeroDivisionError: division by zero", "status 1"}},
      {"sys.exit(7)", {e + "x.py:8, in collect: SystemExit: 7 ends the host's process: leave with return"}},
  };
  for (const auto& [result, said] : cases) {
    Write("x.py", R"(import sys
class Odd(dict): __class__ = list
class Text(str): __str__ = None
ONE, LOOP, DEEP = {}, {}, {'end': None}
LOOP['up'] = [LOOP]
for _ in range(100000): DEEP = {'a': DEEP}
def collect(args):
    return )" + result);
    const std::string out = Run("check --script x.py --tag x --arg p=v=w");
    ExpectAll(said, out);
    const auto findings = std::count_if(said.begin(), said.end(), [](auto& text) { return text.find(": dict_x") < 8; });
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 3 + findings) << out;
  }
}

TEST_F(ToolTest, CheckFindsTheFaultsOfAllScriptsInOneRun) {
  const std::string collect = "def collect(args): return [None] * 50\n";
  Write("tagged.py", "def get_tag(): return 'good'\n" + collect);
  Write("b/tagged.py", collect);
  Write("json.py", collect);
  Write("raises.py", "def get_tag(): return 1 / 0\n" + collect);
  Write("needs.py", "\nimport rubruf_none\n");
  Write("syntax.py", "def collect(args):\n    return {\n");
  Write("other.py", "collect = 5\n");
  Write("quits.py", "raise SystemExit(5)\n");
  Write("a.b.py", collect);
  Write("moves.py", R"(
import concurrent.futures, os, threading, time
os.chdir('/')
pool = concurrent.futures.ThreadPoolExecutor(1)
def collect(args):
    for seconds in (0.1, 3): threading.Thread(target=time.sleep, args=[seconds], name=str(seconds)).start()
    threading.Thread(target=time.sleep, args=[9], name='4', daemon=True).start()
    return [pool.submit(int).result()]
)");
  std::string command = "check";
  for (const char* script :
       {"tagged.py", "b/tagged.py", "raises.py", "json.py", "needs.py", "syntax.py", "none.py", "other.py",
        "other.py --function go --tag t", "quits.py --tag t", "a.b.py", "moves.py --tag m"})
    command += std::string(" --script ") + script;
  ExpectAll(
      {"error: dict_good: [0..49]: None",
       "give a value that stands for it, 50 times\n",
       "dict_good: b/tagged.py: importing tagged gives ",
       "dict_good: b/tagged.py: tagged.py has the same tag",
       "dict_good: tagged.py\n  collect(), tag from get_tag:",
       "py:1, in get_tag: ZeroDivisionError: division by zero: the tag is made",
       "collect(), tag from a hash of the path",
       ": json.py: has the name of a standard-library module and is never imported: rename the file",
       ": needs.py:2, in <module>: ModuleNotFoundError: No module named 'rubruf_none'",
       ": syntax.py:2: SyntaxError: ",
       ": other.py: collect is not a function",
       "dict_t: other.py: there is no function go: ",
       ": none.py: there is no",
       "dict_t: quits.py:1, in <module>: SystemExit: 5",
       "dict_t: quits.py: other.py has the same tag",
       ": a.b.py: No module named 'a': a name with a dot is that of a module in a package: rename the file",
       "ms, 4 tokens\n  error: dict_m: moves.py: the thread '3' does not end, and the host waits for that in finalize",
       "warning: dict_m: moves.py: the daemon thread '4' stands still between collections: sample in the function",
       "12 scripts: 112 errors, 2 warnings\n",
       "status 1"},
      Run(command));
  Write("id.py", collect + "def get_app_id(): return 'none'\n");
  ExpectAll({"error: id.py: get_app_id returns 'none': an ID has", "1 script: 1 error", "status 1"},
            Run("check --script id.py"));
  ExpectAll({"error: tagged.py: the argument x=\\xff is not UTF-8\n1 script: 1 error", "status 1"},
            Run("check --script tagged.py --arg x=\xff"));
}

TEST_F(ToolTest, CheckTellsWhatTheOptionsOfAScriptMakeOfItsFaults) {
  Write("x.py", R"(LOOP = []
LOOP.append({'loop': LOOP})
def get_app_id(): return 'x'
def collect(args):
    return {'none': None, 'long': 2**70, 5: [None], '\ud800': {}, 's': '\udc80', 'l': [1, [None]], 'loop': LOOP, 't': [()] * 3}
)");
  ExpectAll(
      {"the result of x.py: 10, the first: none: NoneType",
       "warning: dict_x: none: None is not supported: it is left out",
       ": long: an integer of more than 64 bits: it is left out", ": the key 5 is not text: its entry is left out",
       ": the key '\\ud800' has no UTF-8 form: its entry", ": s: the text '\\udc80' has no",
       ": l[1]: a list in a list: it is", ": loop[0].loop: circular reference: it is",
       ": t[0..2]: the type tuple is not supported: it is left out, 3 times",
       "get_app_id returns 'x': an ID has 32 hexadecimal digits, and this one is ignored",
       "python-import-log-output: on is no boolean", "1 script: 0 errors, 12 warnings\nstatus 0"},
      Run("check --script x.py --tag x --tolerant --option python-import-log-output=on"));
  Write("types.py", "import dataclasses\n@dataclasses.dataclass\nclass Point: x: int\ndef collect(args): return [1]\n");
  Write("b/types.py", "def collect(args): return [1, 2]\n");
  Write("b/a.b.py", "1 / 0\n");
  const std::string own = " --own-module --tag ";
  ExpectAll({"dict_a: types.py\n", " 4 tokens\ndict_b: b/types.py\n", " 5 tokens\ndict_c: b/a.b.py\n",
             "not collected\n", "error: dict_c: b/a.b.py:1, in <module>: ZeroDivisionError",
             "error: dict_d: no.py: there is no such file", "4 scripts: 2 errors, 0 warnings\n"},
            Run("check --script types.py" + own + "a --script b/types.py" + own + "b --script b/a.b.py" + own +
                "c --script no.py" + own + "d"));
}

TEST_F(ToolTest, CheckTellsMemoryThatKeepsGrowingFromMemoryThatFillsUp) {
  Write("objects.py", "kept = []\ndef collect(args):\n    kept.extend(([], []))\n    return {'n': len(kept)}\n");
  Write("bytes.py", "kept = []\ndef collect(args):\n    kept.append(b'x' * 40960)\n    return {'a': 1}\n");
  Write("steady.py", R"(kept = []
def collect(args):
    loop = []
    loop.append(loop)
    kept[8:] = [b'x' * 40960]
    return [{'text': 'x' * 1000, 'n': i} for i in range(300)]
)");
  const std::string out = Run("check --script objects.py --script bytes.py --script steady.py --tag s --repeat 40");
  ExpectAll({"objects.py: the interpreter's memory keeps growing, by 2.0 blocks per collection",
             "bytes.py: resident memory keeps growing, by ", "dict_s: steady.py\n", "status 1"},
            out);
  EXPECT_EQ(out.find("error: dict_s"), std::string::npos) << out;
}

TEST_F(ToolTest, RunPrintsTheFormatThatIsAskedFor) {
  Write("x.py", "print('noise')\ndef collect(args): return {'a': [1, {}, 'x\\\\\"{'], 'b': []}\n");
  const std::string script = "--script x.py --tag x ";
  ExpectAll({R"({"source": "dict_x", )", R"("data": {"a": [1, {}, "x\\\"{"], "b": []}})"}, Run(script, "2>/dev/null"));
  ExpectAll(
      {R"({  "source": "dict_x",  )", R"("data": {    "a": [      1,      {},      "x\\\"{"    ],    "b": []  }})"},
      Run("run --format pretty " + script, "2>/dev/null | tr -d '\\n'"));
  ExpectAll({"3\nstatus 0"}, Run("--tokens --count 3 --interval 0 " + script, "2>/dev/null | grep -c 'string 0 \"x'"));
  ExpectAll(
      // What the script prints comes when the interpreter flushes it, which may be last of all.
      {"dict_x: script ", " ms, 13 tokens, 230 bytes, 2 refusals\n", "refusals\ndict_x       2  ", "  4\n", "status 0"},
      Run("run --stats --count 2 --interval 0 --buffer-bytes 90 " + script, "2>&1 >/dev/null"));
  ExpectAll({"[info] [python provider]"}, Run(script + "--log-level info"));
  EXPECT_EQ(Run(script + "--log-level 4").find("[info]"), std::string::npos);
}

TEST_F(ToolTest, NamesTheScriptThatEndsOrBlocksTheProcess) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      // what a script does; what check says of it; what run says
      {"os._exit(0)", ": ended the process with exit status 0", ": ended the process with exit status 0"},
      {"sys.exit()", "SystemExit ends the host's process", ": ended the process with exit status 0"},
      {"os.kill(os.getpid(), 13)", ": ended the process by signal 13", ": ended the process by signal 13"},
      {"os.kill(os.getpid(), 11)", ": ended the process by signal 11", ": ended the process by signal 11"},
      {"os.kill(os.getppid(), 2) or time.sleep(0.2) or os.kill(os.getppid(), 2) or time.sleep(9)",
       "rubruf-host: waiting for dict_x: x.py, interrupt again to end", ": waiting for dict_x: x.py, interrupt again"},
      {"os.kill(os.getppid(), 15) or time.sleep(9)", "dict_x: x.py\n  collect(), tag from the options: ", ""},
      {"[{'disks': [{'name': 'a'}, {'name': None}]}]", "[0].disks[1].name: None is",
       "x.py: [0].disks[1].name cannot be"},
      {"[{'a': 1, 5: 1}]", "[0]: the key 5 is", "x.py: the key behind [0].a cannot be"},
  };
  for (const auto& [action, of_check, of_run] : cases) {
    Write("x.py", std::string("import os, sys, time\ndef collect(args): return ") + action);
    const std::string checked = Run("check --script x.py --tag x");
    ExpectAll({"dict_x: x.py", of_check}, checked);
    const std::string run = Run("run --script x.py --tag x");
    ExpectAll({of_run}, run);
    for (const auto& out : {checked, run}) EXPECT_EQ(out.find("status 0", out.size() - 8), std::string::npos) << out;
  }
  Write("crash.py", "import os\nos.kill(os.getpid(), 11)\n");
  Write("x.py", "import os\ndef collect(args): os._exit(3)\n");
  Write("good.py", "def collect(args): return [1]\n");
  ExpectAll({"error: crash.py, which is imported: ended the process by signal 11",
             "crash.py\n  collect(), tag from a hash of the path: not collected\n",
             "not ended\n  error: dict_x: x.py: ended the process with exit status 3",
             "ms, 4 tokens\n3 scripts: 2 errors, 0 warnings\nstatus 1"},
            Run("check --script crash.py --script x.py --tag x --script good.py"));
  Write("x.py",
        "import threading, time\nthreading.Thread(target=time.sleep, args=[60]).start()\n"
        "def collect(args): return [1]\n");
  ExpectAll({"\"data\": [1]}\n", "does not end: a host waits for it in finalize\nstatus 0"}, Run("--script x.py"));
  Write("x.py", "def collect(args): return [1]\n");
  ExpectAll({"could not load python collection function", "rubruf-host: x.py: there is no function go: "},
            Run("--script x.py --function go"));
  ExpectAll({"dict_x: x.py: b/../x.py has the same tag"}, Run("--script b/../x.py --tag x --script x.py --tag x"));
  ExpectAll({"[1]}\nstatus 0"}, Run("--script x.py", "2>&-"));
  ExpectAll({"cannot write to standard output"}, Run("options --script x.py", "2>&1 >/dev/full"));
  ExpectAll({"[debug] [rubruf-host] collecting dict_x: x.py"}, Run("--script x.py --tag x --log-level debug"));
}

TEST_F(ToolTest, TellsMistakesOfConfigurations) {
  Write("b/x.py", "def collect(args): return [len(args)]\n");
  const std::pair<std::string, std::string> cases[] = {
      {"force_sync = true", ":1: the key force_sync is unknown and ignored: did you mean force-sync?"},
      {"\nTag = x", ":2: the key Tag is unknown and ignored: did you mean tag?"},
      {"func = go", "did you mean function?"},
      {"args-zone = 1", "did you mean arg-NAME?"},
      {"enabled = false", "did you mean enable?"},
      {"xyz = false", "known are file, "},
      {"enable = 1\nenable = true", ":2: enable is set again: line 1 does not count"},
      {"enable = yes", ":1: enable = yes is no boolean, and leaves the script out"},
      {"enable = false", "note: b/x.cfg:1: disabled"},
      {"force-sync = on", ":1: force-sync = on is no boolean, and off"},
      {"\xef\xbb\xbftag = x", ":1: the byte-order mark"},
      {"tag = x # note", ":1: the comment is part of the value"},
      {"[section]", ":1: without \"=\" the line is ignored: [section]"},
      {"# tag = old\n# note", ": 0 errors, 0 warnings"},
  };
  for (const auto& [text, said] : cases) {
    Write("b/x.cfg", text + "\n");
    ExpectAll({said}, Run("check b"));
  }
  ExpectAll(
      {"option python-import-2-tags: unknown", "python-import-2-tag", "script 2 has no option python-import-2-file",
       "option python-import-1-arg-x: unknown and ignored: did you mean python-import-arg-1-x?"},
      Run("check --enable-provider python --option python-import-num-scripts=2 --option python-import-1-file=b/x.py "
          "--option python-import-2-tags=x --option python-import-1-arg-x=1"));
  std::filesystem::create_symlink("nowhere", dir_ / "b/README");
  for (const char* command : {"run b", "check b"})
    ExpectAll({"b/README: the link leads nowhere", "status 1"}, Run(command));
}

TEST_F(ToolTest, TakesScriptsCfgFilesAndDirectories) {
  Write("x.py", "def collect(args): return [args.get('zone') or 'none']\n");
  Write("b/x.py", "def collect(args): return [args.get('zone') or 'none']\n");
  Write("b/x.cfg", "tag = one\narg-zone = north\nenable = false\nTag = 1\n");
  Write("b/y.cfg", "file = ../x.py\ntag = two\narg-zone = south\n");
  const std::string one = R"({"source": "dict_one", )";
  ExpectAll({R"("data": ["none"]})", "status 0"}, Run("x.py"));
  ExpectAll({"b/x.py is configured by b/x.cfg, which is disabled for a host", one, R"(["north"])"}, Run("run b/x.py"));
  ExpectAll({"b/x.cfg:4: the key Tag", "dict_one: b/x.py"}, Run("check b/x.cfg"));
  ExpectAll({R"("dict_two")", R"(["south"])", "status 0"}, Run("run b"));
  ExpectAll({one, R"("dict_two")", "status 0"}, Run("b/x.cfg b"));
  ExpectAll({R"("dict_x", )", R"(["east"])", "status 0"}, Run("b/x.py --tag x --arg zone=east"));
  ExpectAll({R"("dict_two")", "status 0"}, Run("run b --only two"));
  ExpectAll({"there is no none, but two", "status 2"}, Run("run b --only none"));
  Write("own.py",
        "def get_tag(): return 'three'\ndef collect(args): return {'größe': '" + std::string(80, 'x') + "'}\n");
  Write("b/z.cfg", "file = ../own.py\n");
  ExpectAll({R"({"source": "dict_three")", "status 0"}, Run("run b --only three"));
  ExpectAll({"dict_three: own.py", "1 script: 0 errors"}, Run("check x.py own.py --only dict_three"));
  for (const char* command : {"run b --only none", "check b --only none"})
    ExpectAll({"--only: there is no none, but dict_three", "status 1"}, Run(command));
  ExpectAll({"\"größe\": \"" + std::string(25, 'x') + "…\r\n"},
            Run("run own.py", "--format pretty' /dev/null", "script -qec 'stty cols 40; "));
  ExpectAll({"unknown command: did you mean check?", "status 2"}, Run("chek x.py"));
  ExpectAll({"Number of scripts: 1"}, Run("x.py --log-file log --log-level info", ">&2; cat log"));
}

TEST_F(ToolTest, RunsAgainWhenAFileChanges) {
  Write("x.py", "import time\ndef collect(args): time.sleep(60)\n");
  Write("b/x.cfg", "file = ../x.py\ntag = x\n");
  Write("change", R"(tool=$!
await() { timeout 20 sh -c 'until grep -qF "$1" out; do sleep 0.02; done' - "$1"; }
await 'collecting dict_x'; sleep 0.3
echo 'def collect(args): return [1]' > new; mv new x.py; await watching
echo 'tag = y' >> b/x.cfg; await '"dict_y"'
echo 'def collect(args): return [None]' > b/new.py; rm x.py; mv b/new.py x.py; await '[0] cannot be sent'
kill -INT $tool; wait $tool; status=$?; cat out; exit $status)");
  ExpectAll(
      {"rubruf-host: b/../x.py has changed\n", "\"data\": [1]}\nrubruf-host: watching b, b/..: interrupt to end\n",
       "rubruf-host: b/x.cfg has changed\n", "rubruf-host: b/../x.py, b/new.py have changed\n", "status 1"},
      Run("run b/x.cfg --watch --log-level debug", ">out 2>&1 & . ./change"));
}

TEST_F(ToolTest, HelpAndManPageHaveTheSameFlags) {
  const auto flags = [](std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());  // the page writes "\\-\\-"
    std::set<std::string> found;
    for (size_t at = text.find("--"); at != std::string::npos; at = text.find("--", at)) {
      const size_t end = std::min(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at), text.size());
      const size_t last = text.find_last_not_of('-', end - 1);
      if (last > at && last != std::string::npos) found.insert(text.substr(at, last + 1 - at));
      at = end;
    }
    return found;
  };
  std::set<std::string> documented = flags(ReadFile(RUBRUF_SOURCE_DIR "/docs/rubruf-host.1"));
  std::set<std::string> helped = flags(Run("--help") + Run("run --help") + Run("check --help") + Run("options --help"));
  helped.erase("--help");
  EXPECT_THAT(documented, ::testing::ContainerEq(helped));
}

TEST_F(ToolTest, ChecksScriptsWhateverTheirPaths) {
  std::string deep = "d";
  for (int level = 0; level < 5; ++level) deep.append("/").append(200, 'd');
  std::string command = "check";
  for (const std::string& folder : {std::string("d\u00e4"), std::string("d\xff"), deep}) {
    std::filesystem::create_directories(dir_ / folder);
    const std::string script = folder + "/s" + std::to_string(folder.size()) + ".py";
    Write(script, "def collect(args): return [1]\n");
    command += " --script '" + script + "'";
  }
  setenv("LC_ALL", "C", 1);
  ExpectAll({": d\\xff/s2.py", "3 scripts: 0 errors, 0 warnings\nstatus 0"}, Run(command));
}

TEST_F(ToolTest, TellsHostOptionsAndWrongUsage) {
  const std::string scripts =
      "options --script a.py --tag t --arg x=1=2 --force-sync --script b.py --own-module --log-output --release-lock ";
  EXPECT_EQ(
      Run(scripts + "--option enable-provider=python,x"),
      "enable-provider=python,x\npython-import-num-scripts=2\npython-import-1-file=a.py\npython-import-1-tag=t\n"
      "python-import-1-force-sync=true\npython-import-arg-1-x=1=2\npython-import-2-file=b.py\n"
      "python-import-2-own-module=true\npython-import-log-output=true\npython-import-release-lock=true\nstatus 0");
  EXPECT_EQ(Run("options --config-dir 'd\"' --format json"), R"({"python-import-config-dir":"d\""})"
                                                             "\nstatus 0");
  for (const char* wrong : {"", "collect", "run", "run --format xml --script x.py", "check --repeat 0 --script x.py",
                            "run --count 99999999999999999999 --script x.py", "--log-level loud --script x.py",
                            "--tag t --script x.py", "options --stats", "--config-dir . --script x.py"})
    ExpectAll({"status 2"}, Run(wrong));
  for (const std::string command : {"run ", "check ", "options "})
    ExpectAll({"Example:\n  rubruf-host " + command, "status 0"}, Run(command + "--help"));
  ExpectAll({"rubruf 0.1.0, Python 3.", "status 0"}, Run("--version"));
}

}  // namespace
