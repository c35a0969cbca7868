// The documents: every example in them does what they say, and the list of messages is that of the sources.

#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // g++ 12's own <regex>, under the sanitizers
#endif

#include <gmock/gmock.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "tests/provider_test_base.h"

using nlohmann::ordered_json;
namespace fs = std::filesystem;

const fs::path kRoot = RUBRUF_SOURCE_DIR;

// The matches point into the text.
std::vector<std::smatch> Matches(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern);
  return {std::sregex_iterator(text.begin(), text.end(), regex), {}};
}
std::vector<std::smatch> Matches(std::string&& text, const std::string& pattern) = delete;

std::string Replaced(const std::string& text, const std::string& pattern, const std::string& by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

// The blocks of code in a document: what kind of code, and the code.
std::vector<std::smatch> Blocks(const std::string& text, const std::string& kind) {
  return Matches(text, "\n```(" + kind + ")\n([^`]*)```");
}

struct Example {
  std::map<std::string, std::string> files;  // scripts and .cfg files, by the name that their first line tells
  std::map<std::string, std::string>
      texts;  // "properties": options; what comes of them: "json", data; "text", messages
};

std::ostream& operator<<(std::ostream& out, const Example& example) { return out << example.files.begin()->first; }

std::vector<Example> Examples() {
  std::vector<Example> examples;
  bool complete = true;
  for (const char* document : {"docs/writing-scripts.md", "docs/configuration.md"}) {
    const std::string text = ReadFile(kRoot / document);
    for (const auto& block : Blocks(text, "python|ini|properties|json|text")) {
      const std::string kind = block[1];
      const std::string content = block[2];
      const bool is_file = kind == "python" || kind == "ini";
      const bool is_result = kind == "json" || kind == "text";
      if (complete && !is_result) examples.emplace_back();
      complete = is_result;
      auto& [files, texts] = examples.back();
      (is_file ? files[content.substr(2, content.find('\n') - 2)] : texts[kind]) = content;
    }
  }
  return examples;
}

class ExampleTest : public ProviderTest, public ::testing::WithParamInterface<Example> {
 protected:
  // Writes the files, with a .cfg file that sets the tag for a script that has none. The documents' directory is
  // "/scripts".
  void SetUp() override {
    for (const auto& [name, content] : example_.files) {
      fs::create_directories(fs::path(dir_ / name).parent_path());
      Write(name, content);
      const fs::path config = fs::path(name).replace_extension(".cfg");
      if (config.has_parent_path() || example_.files.count(config) != 0) continue;
      Write(config, "tag = " + config.stem().string());
    }
    const std::string options = Replaced(example_.texts["properties"], "/scripts", directory_);
    for (const auto& line : Matches(options, "(.*) = (.*)\n")) options_.emplace_back(line[1], line[2]);
    if (options_.empty()) options_ = {{"python-import-config-dir", directory_}};
    // A first life brings a descriptor, with which what refused options leave behind can be finalized.
    ASSERT_TRUE(Construct({{"enable-provider", "python"}, {"python-import-file", "never_started.py"}}));
    Finalize();
    log_.Take();
  }

  Example example_ = GetParam();
  const std::string directory_ = fs::path(dir_ / "x").parent_path();
  Options options_;
};

TEST_P(ExampleTest, DoesWhatItsDocumentSays) {
  const auto tags = Construct(options_) && Initialize() ? SourceTags() : std::vector<std::string>();
  std::multiset<std::string> arrived;
  std::multiset<std::string> documented;
  for (uint32_t i = 0; i < tags.size(); ++i) {
    const auto tokens = Collect(i).tokens;
    if (example_.texts.count("json") == 0) continue;
    auto line = ordered_json::parse(standin::ToJsonLine(tags[i], tokens));
    line["timestamp"] = 1795383324446462;  // the documents' present
    arrived.insert(line.dump());
  }
  std::istringstream data(example_.texts["json"]);
  for (ordered_json line; data >> std::ws && !data.eof();) documented.insert((data >> line, line).dump());
  EXPECT_EQ(arrived, documented);
  std::map<int, std::string> shown{{TEV_LOG_ERROR, "[error] "}, {TEV_LOG_WARNING, "[warning] "}};
  if (example_.texts["text"].find("[info]") != std::string::npos) shown[TEV_LOG_INFO] = "[info] ";
  std::string messages;
  for (const auto& [level, message] : log_.Take()) messages += shown.count(level) ? shown[level] + message + "\n" : "";
  EXPECT_EQ(Replaced(messages, directory_, "/scripts"), example_.texts["text"]);
}

INSTANTIATE_TEST_SUITE_P(Documents, ExampleTest, ::testing::ValuesIn(Examples()));

TEST_F(ProviderTest, WritesTheStreamOfTheDocumentByteByByte) {
  const std::string text = ReadFile(kRoot / "docs/token-stream.md");
  std::vector<standin::Token> documented;
  for (const auto& row : Matches(text, R"(\| 0x(\w{8})(\w{8}) \| (\d+) \|([0-9a-f ]*)\|)")) {
    const auto half = [](const std::string& digits) { return static_cast<uint32_t>(std::stoul(digits, nullptr, 16)); };
    documented.push_back({half(row[1]), half(row[2])});
    std::istringstream bytes(row[4]);
    for (unsigned byte = 0; bytes >> std::hex >> byte;) documented.back().payload += static_cast<char>(byte);
    EXPECT_EQ(std::to_string(documented.back().payload.size()), row[3]) << row[0];
  }
  Start({Write("links.py", Blocks(text, "python").at(0)[2])});
  auto tokens = Collect().tokens;
  ASSERT_FALSE(tokens.empty() || documented.empty());
  tokens[0].payload = documented[0].payload;  // the time
  EXPECT_EQ(tokens, documented);
  const std::string json = Blocks(text, "json").at(0)[2];
  EXPECT_EQ(ordered_json::parse(standin::ToJsonLine("dict_links", documented)), ordered_json::parse(json));
}

TEST(OptionsTest, AreDocumentedAndCheckedAsTheHeaderHasThem) {
  std::set<std::string> known;
  std::set<std::string> documented;
  const std::string checked = ReadFile(kRoot / "host/tool/configuration.cpp");
  const std::string header = ReadFile(kRoot / "provider/option_keys.h");
  for (const auto& key : Matches(header, R"((k\w+Option)\[\] = "([^"]+)\")")) {
    if (key[1] == "kEnableOption") continue;  // of .cfg files alone
    known.insert(key[2]);
    EXPECT_NE(checked.find(key[1]), std::string::npos) << key[1] << " is unknown to rubruf-host check";
  }
  const std::string page = ReadFile(kRoot / "docs/configuration.md");
  for (const auto& row : Matches(page, R"(\n\| ((?:python-import|enable|disable)-[\w-]+) \|)")) {
    if (row[1].str().find("-arg-") == std::string::npos) documented.insert(row[1]);
  }
  EXPECT_THAT(documented, ::testing::ContainerEq(known));
}

using Names = std::set<std::string>;

Names Found(const std::string& text, const std::string& pattern) {
  Names names;
  for (const auto& match : Matches(text, pattern)) names.insert(match[1]);
  return names;
}

// The values that a text explains as "NAME: what it does" or "NAME (default): ...", with semicolons between them.
Names Explained(const std::string& text) { return Found(text, R"((?:^|;) *(\w+)(?: \(default\))?:)"); }

TEST(FlagsTest, HaveTheSameValuesInCodeHelpManPageAndDocuments) {
  const std::string code = ReadFile(kRoot / "host/tool/command_line.cpp");
  // Without the commands for fonts, which stand at the start of a line or end the name before a colon.
  std::string manual = Replaced(ReadFile(kRoot / "docs/rubruf-host.1"), R"(\.BR? |\\)", "");
  manual = Replaced(Replaced(manual, " :\n", ": "), "\n", " ");
  std::multiset<Names> coded;
  std::multiset<Names> helped;
  std::multiset<Names> documented;
  for (const auto& format : Matches(code, R"re(AddFormat\(\{(.*)\},\s*"([^"]*)"\))re")) {
    coded.insert(Found(format[1], R"re(\{"(\w+)")re"));
    helped.insert(Explained(format[2]));
  }
  for (const auto& format : Matches(manual, R"re(--format " FORMAT" ([^.]*))re"))
    documented.insert(Explained(format[1]));
  ASSERT_FALSE(coded.empty());
  EXPECT_EQ(helped, coded);
  EXPECT_EQ(documented, coded);

  const std::string table = Matches(code, "kLevels = ([^;]*);").at(0)[1];
  std::string levels;
  for (const auto& name : Matches(table, R"re(\{"([a-z]+)")re")) levels += name[1].str() + ", ";
  const Names numbers = Found(table, R"re(\{"(\d)")re");
  levels = "to show: " + levels + "or " + *numbers.begin() + " to " + *numbers.rbegin();
  EXPECT_NE(code.find(levels), std::string::npos) << levels;
  EXPECT_NE(Replaced(manual, "to show .*?: ", "to show: ").find(levels), std::string::npos) << levels;

  std::map<std::string, Names> known{{"log-level", Found(table, R"re(\{"(\w+)")re")}};
  for (const Names& names : coded) known["format"].insert(names.begin(), names.end());
  for (const char* file :
       {"README.md", "docs/host-integration.md", "docs/token-stream.md", "docs/writing-scripts.md"}) {
    const std::string text = ReadFile(kRoot / file);
    for (const auto& use : Matches(text, R"(--(format|log-level) (\w+))"))
      EXPECT_EQ(known[use[1]].count(use[2]), 1U) << file << ": " << use[0];
  }
}

TEST(MessagesTest, AreDocumentedAsTheSourcesHaveThem) {
  std::set<std::string> logged;
  std::set<std::string> documented;
  for (const char* folder : {"provider", "config", "utils"}) {
    for (const auto& entry : fs::recursive_directory_iterator(kRoot / folder)) {
      const std::string text = entry.is_regular_file() ? ReadFile(entry) : "";
      size_t prefixed = 0;
      const auto calls =
          Matches(text, R"((?:TEV_(?:UTIL_)?LOG\((?:TEV_LOG_)?(\w+),|FailBinding\()\s*((?:"[^"]*"\s*)+))");
      for (const auto& call : calls) {
        const std::string format = Replaced(call[2], "\"\\s*", "");
        prefixed += format.rfind("[python ", 0) == 0 ? 1 : 0;
        if (format != "%s")
          logged.insert(boost::to_upper_copy(call[1].matched ? call[1].str() : "ERROR") + ": " + format);
      }
      EXPECT_EQ(calls.size(), Matches(text, R"((?:TEV_(?:UTIL_)?LOG|FailBinding)\((?!level, \.|const))").size())
          << entry;
      EXPECT_EQ(prefixed, Matches(text, R"("\[python )").size()) << "a message that is logged otherwise, in " << entry;
    }
  }
  const std::string text = ReadFile(kRoot / "docs/messages.md");
  for (const auto& row : Matches(text, "\n\\| (\\w+) \\| `([^`]+)`")) {
    documented.insert(boost::to_upper_copy(row[1].str()) + ": " + row[2].str());
  }
  EXPECT_THAT(documented, ::testing::ContainerEq(logged));
}
