// Tests of the host's options: the number of scripts, the keys of a script, its arguments, and the configuration log.

#include "tests/provider_test_base.h"

namespace {

using namespace messages;
using namespace std::string_literals;
using OptionsTest = ProviderTest;

const auto kUnread = Error("could not read options");

TEST_F(OptionsTest, ReadsTheNumberOfScriptsAsStrtolDoes) {
  const std::pair<std::string, size_t> kCases[] = {
      {"256", 256}, {"1", 1}, {"3 scripts", 3}, {"4294967297", 1}, {" \t2", 2}, {"+2", 2},
      {"0x10", 0},  {"", 0},  {"257", 0},       {"0", 0},          {"-1", 0},   {"abc", 0}};  // 0: refused
  for (const auto& [text, count] : kCases) {
    EXPECT_EQ(Construct(Keys("file=a.py;num-scripts=" + text)), count != 0) << text;
    Messages expected(count, kDefaultFunction);
    if (count == 256) expected.push_back(Warning("Maximal scripts limit reached. using only 256"));
    if (count == 0) {
      expected = {Error("invalid value of 'python-import-num-scripts' - expected an integer in range [1, 256]"),
                  kUnread};
    }
    EXPECT_EQ(log_.Take(), expected) << text;
    EXPECT_TRUE(count != 0 || Construct(Keys("file=a.py"))) << "the number is 1 again";
    EXPECT_EQ(SourceTags().size(), count == 0 ? 1 : count) << text;
    Finalize();
    log_.Take();
  }
}

TEST_F(OptionsTest, ReadsScriptsAndTheirArguments) {
  const std::pair<const char*, const char*> kCases[] = {
      {"file=a.py", "a.py|collect|false|"},
      {"1-file=b.py;1-function=f;1-tag=t;1-force-sync=True", "b.py|f|true|dict_t"},
      {"file=a.py;1-file=b.py;function=;1-function=f;tag=;1-tag=t;force-sync=0;1-force-sync=1", "a.py|collect|false|"},
      {"num-scripts=2;2-file=b.py;1-file=a.py;function=f;2-function=g;02-tag=x;2-tag=t;force-sync=true",
       "a.py|f|true|;b.py|f|true|dict_t"},
      {"file=a.py;arg-x=1;arg-y=;arg-=none;arg- =none;arg- z=2", "a.py|collect|false|| =none|=none|x=1|y=| z=2|z=2"},
      {"file=a.py;arg-x y=1;arg-x\t=2;arg-1-x y=3;arg-1-=none;arg-1- =none",
       "a.py|collect|false||x y=1|x\t=2|1- =none|1-x y=3|x=2|1-=none"},
      {"file=a.py;arg-1=1;arg-1x=2;arg-1-x=3;arg-01-z=4;arg-+1-p=5;arg- 1-b=6;arg-1.-d=7",
       "a.py|collect|false||p=5|1=1|b=6|1.-d=7| 1-b=6|1x=2|x=3|+1-p=5|z=4|1-x=3|01-z=4"},
      {"file=a.py;arg-1-x=1;arg-x=2;Arg-x=3;argx=4;ARG-1-x=5", "a.py|collect|false||x=1|1-x=1"},
      {"num-scripts=3;file=a.py;arg-x=1;arg-2-x=2;arg-3-y=3;arg-2-3-x=4",
       "a.py|collect|false||x=1|2-3-x=4|2-x=2|3-y=3;a.py|collect|false||x=2|2-3-x=4|2-x=2|3-x=4|3-y=3;a.py|collect|"
       "false||x=1|y=3|2-3-x=4|2-x=2|3-y=3"},
  };
  for (const auto& [keys, scripts] : kCases) {
    EXPECT_TRUE(Construct(Keys("num-scripts=1;"s + keys))) << keys;
    EXPECT_EQ(LoggedScripts(), scripts) << keys;
    Finalize();
  }
}

TEST_F(OptionsTest, RefusesWithMessagesInOrder) {
  const auto no_file = Error("Invalid argument for 'python-import-file' - Please specify an existing python file path");
  ASSERT_TRUE(Construct(Keys("file=a.py")));
  const auto refuse = [&](const char* keys, size_t read, const Messages::value_type& message, size_t left) {
    Finalize();
    log_.Take();
    EXPECT_FALSE(Construct(Keys(keys)));
    Messages expected(read, kDefaultFunction);
    expected.push_back(message);
    EXPECT_EQ(log_.Take(), Refusal(expected)) << keys;
    EXPECT_EQ(SourceTags().size(), left) << keys;
  };
  refuse("num-scripts=1", 0, no_file, 0);
  refuse("file=;1-file=a.py", 0, no_file, 0);
  refuse("num-scripts=2;1-file=a.py;02-file=b.py", 1, no_file, 0);
  refuse("num-scripts=1;file=a.py;arg-0-x=1", 1, Error("invalid option index 0"), 1);
  refuse("file=a.py;arg--1-x=1", 1, Error("invalid option index -1"), 1);
  refuse("file=a.py;arg-257-x=1", 1, Error("invalid option index 257"), 1);
  refuse("file=a.py;arg-4294967297-x=1", 1, Error("invalid option index 4294967297"), 1);
  refuse("num-scripts=3;file=a.py;arg-4-x=1", 3, Error("invalid index 4"), 3);
  refuse("num-scripts=2;file=a.py;arg-256-x=1", 2, Error("invalid index 256"), 2);
}

TEST_F(OptionsTest, TakesNullValues) {
  standin::HostOptions options(Library(), Keys("1-file=" + Script("echo.py", "return [repr(args)]")));
  for (const char* key : {"app-id", "num-scripts", "config-dir", "file", "tag", "arg-x"}) {
    options.Add((std::string("python-import-") + key).c_str(), nullptr);
  }
  provider_ = Library().Construct(options.get());
  ASSERT_NE(provider_, nullptr) << "an option without a value counts as absent";
  ASSERT_TRUE(Initialize());
  EXPECT_EQ(FirstText(), "{'x': None}");
  EXPECT_EQ(LoggedScripts(dir_ / ""), "echo.py|collect|false||x=(null)");
}

TEST_F(OptionsTest, LogsTheApplicationIdAsFarAsTheLevelGoes) {
  const std::string app_id = "00112233-4455-6677-8899-aabbccddeeff";
  ASSERT_TRUE(Construct(Keys("file=a.txt;app-id=" + app_id)));
  log_.Take();
  SourceTags();
  EXPECT_EQ(log_.Take().at(0), Info("App ID: " + app_id));
  EXPECT_FALSE(Construct(Keys("app-id=none;num-scripts=0")));
  EXPECT_EQ(log_.Take(), (Messages{Error("invalid app ID 'none'"), kUnread}));
  SourceTags();
  EXPECT_EQ(log_.Take().at(0), Info("App ID: 00000000-0000-0000-0000-000000000000"));
  *Library().Symbol<int*>("tev_log_level") = TEV_LOG_WARNING;
  SourceTags();
  EXPECT_EQ(log_.Take(), Messages());
  // With a negative level, the provider logs nothing and the utilities log everything: they compare unsigned.
  *Library().Symbol<int*>("tev_log_level") = -5;
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log_.Take(), Messages{EnvironmentError("Invalid input - file name should contain '.py' postfix")});
}

}  // namespace
