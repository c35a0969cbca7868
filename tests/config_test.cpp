// Tests of the configuration: the .cfg format, the directory scan, virtual providers, and repeated calls of the entry.

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <set>

#include "tests/provider_test_base.h"
#include "tests/root_with_config.h"
#include "utils/python_env/python_env.h"

namespace {

using namespace messages;
using namespace std::string_literals;
namespace fs = std::filesystem;

class ConfigTest : public ProviderTest {
 protected:
  ~ConfigTest() override { EXPECT_EQ(CountOpenFiles(), open_files_); }

  static Options Directory(const std::string& path) { return {{"python-import-config-dir", path}}; }

  // Makes a directory with the file "x.cfg" and returns its path, which ends in "/".
  std::string DirectoryOf(const std::string& cfg) {
    const std::string name = std::to_string(++directories_) + "/";
    fs::create_directory(dir_ / name);
    Write(name + "x.cfg", cfg);
    return dir_ / name;
  }

  // The sources' tags without "dict_", joined.
  std::string Tags() {
    std::string tags;
    for (const std::string& tag : SourceTags()) tags += tag.substr(5);
    return tags;
  }

 private:
  static std::ptrdiff_t CountOpenFiles() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

  const std::ptrdiff_t open_files_ = CountOpenFiles();
  int directories_ = 0;
};

TEST_F(ConfigTest, ReadsLines) {
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): a failure must be reproducible
  std::string noise(1 << 20, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  std::string many = noise + "\narg-big=" + std::string(3 << 20, 'b') + "\narg-big=small\n";
  for (int i = 0; i < 50000; ++i) many += "some-key-" + std::to_string(i) + "=some value\n";
  const std::string large = DirectoryOf(many);
  ASSERT_TRUE(Construct(Directory(large)));
  EXPECT_EQ(LoggedScripts(large), "x.py|collect|false||big=small");
  Finalize();
  log_.Take();
  const std::string directory = DirectoryOf("file=\n\n \n# note\n  #note\n#arg-y=1\r\nword");
  ASSERT_TRUE(Construct(Directory(directory)));
  EXPECT_EQ(log_.Take(), (Messages{Debug("ignoring line without '=' in " + directory + "x.cfg"), kDefaultFunction}));
}

TEST_F(ConfigTest, ReadsTheKeysOfAScript) {
  const std::pair<std::string, const char*> kCases[] = {
      {"", "x.py|collect|false|"},
      {"file=s.py\0x\narg-nul=a\0b\narg-\0=c"s, "s.py|collect|false||=c|nul=a"},
      {" file =\tsub/../s.py \r\n\v\ffunction\t= run \nfunction = again", "sub/../s.py|again|false|"},
      {"file=/x/s.py\ntag= a=b \nforce-sync = True\nenable = True\n", "/x/s.py|collect|true|dict_a=b"},
      {"1-file=other.py\n1-tag=t\n1-function=f\nfunction=\nfile-=x", "x.py|collect|false|dict_t"},
      {"arg-b= one two \narg-a =\n arg- = none\narg-b=last\n=nothing\narg-1-x=1\narg-\xff=\x80",
       "x.py|collect|false||=none|a=|b=last|1-x=1|\xFF=\x80"},
      {"enable=\nenable=1\n#enable=0\nEnable=0\n; enable=0", "x.py|collect|false|"},
      {"enable=0", ""},
      {"enable=1\nenable = TRUE", ""},
      {"python-import-tag=x\nnum-scripts=7\nconfig-dir=/\napp-id=none", "x.py|collect|false|"}};
  for (const auto& [text, script] : kCases) {
    const std::string directory = DirectoryOf(text);
    EXPECT_EQ(Construct(Directory(directory)), *script != '\0') << text;
    EXPECT_EQ(LoggedScripts(directory), script) << text;
    Finalize();
  }
}

TEST_F(ConfigTest, ScansVisibleRegularFilesInListingOrder) {
  const std::string directory = DirectoryOf("file=s.py\ntag=x");
  for (const char* name : {"sub.cfg", "elsewhere"}) fs::create_directory(directory + name);
  for (const std::string name : {"a.cfg", "b.cfg", "x.tar.cfg", ".hidden.cfg", "x.cfg.bak", "x.CFG", "xcfg",
                                 "sub.cfg/y.cfg", "elsewhere/link.cfg"}) {
    std::ofstream(directory + name) << "enable=" << (name != "b.cfg")
                                    << "\nfile=s.py\ntag=" << fs::path(name).stem().c_str();
  }
  ASSERT_EQ(mkfifo((directory + "pipe.cfg").c_str(), 0600), 0);
  fs::create_symlink("elsewhere/link.cfg", directory + "link.cfg");
  fs::create_symlink("elsewhere", directory + "dirlink.cfg");
  std::string scripts;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string tag = entry.path().stem();
    const bool served =
        entry.path().extension() == ".cfg" && (tag == "x" || tag == "a" || tag == "x.tar" || tag == "link");
    if (served) scripts += (scripts.empty() ? "s.py|collect|false|dict_" : ";s.py|collect|false|dict_") + tag;
  }
  ASSERT_EQ(chdir((directory + "elsewhere").c_str()), 0);
  for (const std::string& path : {directory, directory.substr(0, directory.size() - 1), ".."s, "../elsewhere/../"s}) {
    ASSERT_TRUE(Construct(Directory(path))) << path;
    EXPECT_EQ(LoggedScripts(path.back() == '/' ? path : path + '/'), scripts) << path;
    Finalize();
  }
}

TEST_F(ConfigTest, FailsTheScanWithMessagesInOrder) {
  const std::string dangling = DirectoryOf("enable=0");
  fs::create_symlink("nowhere", dangling + "README");
  const std::string unreadable = DirectoryOf("");
  fs::permissions(unreadable + "x.cfg", fs::perms(0));
  fs::permissions(dir_ / "", fs::perms(0755));
  const auto fail = [this](const std::string& path, const Messages& causes) {
    EXPECT_FALSE(Construct(Directory(path))) << path;
    EXPECT_EQ(log_.Take(), Refusal(causes));
  };
  const uid_t user = geteuid();
  ASSERT_EQ(user == 0 ? seteuid(65534) : 0, 0) << "root may read everything";
  for (const std::string& path : {""s, dir_ / "none", dangling + "x.cfg"})
    fail(path, {Error("Could not open directory " + path)});
  fail(dangling, {Error("stat error"), Error("Failed to read config directory " + dangling)});
  fail(unreadable,
       {Error("Could not open file " + unreadable + "x.cfg"), Error("Failed to read config directory " + unreadable)});
  ASSERT_EQ(seteuid(user), 0);
}

TEST_F(ConfigTest, Takes256EnabledFiles) {
  const std::string directory = DirectoryOf("enable=0");
  for (int i = 0; i < 256; ++i) std::ofstream(directory + std::to_string(i) + ".cfg") << "function=run\nenable=1";
  ASSERT_TRUE(Construct(Directory(directory)));
  EXPECT_EQ(SourceTags().size(), 256u);
  Finalize();
  log_.Take();
  std::ofstream(directory + "x.cfg") << "function=run";
  EXPECT_FALSE(Construct(Directory(directory)));
  EXPECT_EQ(log_.Take(),
            Refusal({Error("Too much scripts enabled"), Error("Failed to read config directory " + directory)}));
  EXPECT_EQ(Tags(), "");
}

TEST_F(ConfigTest, RepeatedCallsAddToTheList) {
  const std::string script = Script("s.py", "return [repr(args)]");
  const std::string keys = "tag=k;file=" + script;
  const Options files = Directory(DirectoryOf("tag=d\narg-x=1\nforce-sync=1\nfile=" + script));
  const Options empty = Directory(DirectoryOf("enable=0"));
  const std::string broken = DirectoryOf("tag=b");
  fs::create_symlink("nowhere", broken + "README");
  // There may be more scripts than sources, because the number of scripts limits the sources.
  const auto step = [this](const Options& options, bool constructed, const char* tags) {
    EXPECT_EQ(Construct(options), constructed) << tags;
    EXPECT_EQ(Tags(), tags);
    for (uint32_t index = 0; index < 256; ++index) EXPECT_EQ(Progress(index), TEV_PROGRESS_ERROR);
  };
  step(Keys(keys + ";num-scripts=1"), true, "k");
  step(files, true, "kd");
  step(files, true, "kdd");
  step(Keys(keys), true, "kdd");
  step(empty, true, "kddkkk");
  step(Keys(keys + ";arg-0-x="), false, "kddkkk");
  step(Directory(dir_ / "none"), false, "kddkkk");
  step(Keys("file="), false, "");
  step(files, true, "d");
  step(Directory(broken), false, "");
  step(empty, false, "");
  step(Keys(keys), true, "k");
  step(files, true, "kd");
  ASSERT_TRUE(Initialize());
  EXPECT_EQ(FirstText(0) + FirstText(1), "{}{'x': '1'}");
  EXPECT_EQ(Collect(1).status, TEV_PROGRESS_DONE_FORCE_SYNC);
}

// Two scripts have the file name of a standard module, and one of them is configured twice.
TEST_F(ConfigTest, LoadsOwnModulesByEachRoute) {
  std::string cfg[3];
  for (const std::string name : {"a", "b"}) {
    fs::create_directory(dir_ / name);
    Write(name + "/beside_" + name + ".py", "letter = '" + name + "'");
    cfg[name == "b"] = "own-module=true\nfile=" + Script(name + "/types.py", "return [describe()]", R"(
import dataclasses, pickle
from beside_)" + name + R"( import letter
calls = 0
@dataclasses.dataclass
class Point: x: int
def describe():
    global calls
    calls += 1
    return __name__ + pickle.loads(pickle.dumps(Point(letter))).x + str(calls))");
  }
  cfg[2] = cfg[0];
  const auto path = [&](size_t i) { return cfg[i].substr(cfg[i].find('/')); };
  std::vector<Options> routes{
      Keys("num-scripts=3;own-module=1;1-file=" + path(0) + ";2-file=" + path(1) + ";3-file=" + path(2)),
      Keys("num-scripts=3;1-own-module=1;2-own-module=True;3-own-module=true;1-file=" + path(0) + ";2-file=" + path(1) +
           ";3-file=" + path(2)),
      Directory(DirectoryOf(cfg[0]))};
  for (const size_t i : {1, 2}) std::ofstream(dir_ / "1/" + std::to_string(i) + ".cfg") << cfg[i];
  if (EnterRootWithConfig()) {
    fs::create_directory("/config/collection_configs");
    for (const size_t i : {0, 1, 2})
      std::ofstream("/config/collection_configs/" + std::to_string(i) + ".cfg") << cfg[i];
    routes.push_back({{"enable-provider", "0,1,2"}});
  }
  RUBRUF_IMPORT(tev_python_environment_init);
  RUBRUF_IMPORT(tev_python_environment_finalize);
  ASSERT_EQ(tev_python_environment_init(), 0) << "one interpreter for all lives";
  for (const Options& options : routes) {
    ASSERT_TRUE(Construct(options));
    ASSERT_TRUE(Initialize());
    std::multiset<std::string> letters;
    for (uint32_t i = 0; i < 3; ++i) {
      const std::string text = FirstText(i);
      EXPECT_EQ(text.substr(0, text.size() - 2), "rubruf_script_" + std::to_string(i + 1) + "_types");
      letters.insert(text.substr(text.size() - 2));
    }
    EXPECT_EQ(letters, (std::multiset<std::string>{"a1", "a1", "b1"})) << "each module counts its own calls";
    EXPECT_NE(LoggedScripts(dir_ / "").find("b/types.py|collect|false||true"), std::string::npos);
    Finalize();
  }
  EXPECT_EQ(tev_python_environment_finalize(), 0);
}

class VirtualProviderTest : public ConfigTest {
 protected:
  void SetUp() override {
    if (!EnterRootWithConfig()) GTEST_SKIP() << "no mount namespace with a /config: " << strerror(errno);
  }

  void ExpectRefusal(const Options& options, Messages causes) {
    EXPECT_FALSE(Construct(options));
    causes.insert(causes.begin(), Debug("Adding virtual providers"));
    causes.push_back(Info("no virtual providers found"));
    EXPECT_EQ(log_.Take(), Refusal(causes));
    EXPECT_EQ(provider_ == nullptr ? "" : Tags(), "");
  }

  static Options Enable(const std::string& names) { return {{"enable-provider", names}}; }
  void AddFile(const std::string& name, const std::string& text) {
    fs::create_directories(kDirectory);
    std::ofstream(kDirectory / name) << text;
  }

  const fs::path kDirectory = "/config/collection_configs";
};

TEST_F(VirtualProviderTest, NeedsTheDirectoryAndAFile) {
  const auto without = Debug("Did not find default configuration directory (/config/collection_configs)");
  const std::string status = "Could not get the status of /config/collection_configs";
  const std::string loop = ": Too many levels of symbolic links";
  ExpectRefusal({{"python-import-file", "a.py"}}, {without});
  std::ofstream(kDirectory) << "no directory";
  ExpectRefusal(Enable("a"), {without});
  fs::remove(kDirectory);
  fs::create_symlink(kDirectory, kDirectory);
  ExpectRefusal(Enable("a"), {Debug(status + loop), without});
  fs::remove(kDirectory);
  AddFile("a.cfg", "tag=a\nfunction=run");
  ExpectRefusal({{"disable-provider", "a"}}, {});
  for (const char* names : {"", ",", "b,c", " a", "A"}) ExpectRefusal(Enable(names), {});
  ExpectRefusal(Enable(std::string(300, 'a')), {});
  fs::create_symlink("loop.cfg", kDirectory / "loop.cfg");
  const Messages causes{Info("Added provider a"), Error(status + "/loop.cfg" + loop),
                        Error("Could not add virtual provider loop")};
  for (int round = 0; round < 2; ++round) {
    ExpectRefusal(Enable("a,loop,b"), causes);
    ASSERT_TRUE(Construct(Enable("a,b")));
    ASSERT_TRUE(Construct(Enable("a")));
    EXPECT_EQ(Tags(), "aa") << "another call adds a script";
    log_.Take();
  }
  std::string all = "a";
  for (int i = 1; i < 256; ++i) all += ",a";
  Messages too_many(254, Info("Added provider a"));
  too_many.insert(too_many.end(), {Error("Too much scripts enabled"), Error("Could not add 'a' provider"),
                                   Error("Could not add virtual provider a")});
  ExpectRefusal(Enable(all), too_many);
}

TEST_F(VirtualProviderTest, ServesEveryNameWithAFile) {
  AddFile("temperature.cfg", "enable=false\narg-disabled=own");
  AddFile(" fans.cfg", "tag=fans\narg-disabled=own");
  AddFile("temp.cfg", "file=s.py\nfunction=run");
  AddFile("target", "function=run");
  fs::create_symlink("target", kDirectory / "link.cfg");
  fs::create_symlink("nowhere", kDirectory / "dangling.cfg");
  fs::create_directory(kDirectory / "folder.cfg");
  Options options = Enable("temperature,gone, fans,,temp,link,folder,dangling");
  options.emplace_back("disable-provider", "temperature.cpu,fans,temperature, temperature,temp");
  ASSERT_TRUE(Construct(options));
  EXPECT_EQ(log_.Take(), (Messages{Debug("Adding virtual providers"), kDefaultFunction,
                                   Info("Added provider temperature"), kDefaultFunction, Info("Added provider  fans"),
                                   Info("Added provider temp"), Info("Added provider link")}));
  EXPECT_EQ(LoggedScripts(kDirectory.string() + "/"),
            "temperature.py|collect|false||disabled=temperature.cpu,temperature;"
            " fans.py|collect|false|dict_fans|disabled=own;"
            "s.py|run|false||disabled=temperature.cpu,temperature,temp;link.py|run|false|");
}

}  // namespace
