// ProviderTest: one life of the plug-in in a test, with scripts in a directory of the test's own.
//
// The provider is one per process, so ctest runs each test in its own; a test that drives several lives ends each with
// Finalize.

#ifndef RUBRUF_TESTS_PROVIDER_TEST_BASE_H_
#define RUBRUF_TESTS_PROVIDER_TEST_BASE_H_

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/standin/collector.h"
#include "host/standin/configuration_log.h"
#include "host/standin/handles.h"
#include "host/standin/host_options.h"
#include "host/standin/json_writer.h"
#include "tests/library.h"

// A directory that goes with all that is in it.
class TempDir {
 public:
  TempDir() {
    std::string name = std::filesystem::temp_directory_path() / "rubruf-test-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Runs statements in the running interpreter, found where an extension module finds it. False when they raise.
inline bool Python(const std::string& statements) {
  const auto run = reinterpret_cast<int (*)(const char*, void*)>(dlsym(RTLD_DEFAULT, "PyRun_SimpleStringFlags"));
  return run != nullptr && run(statements.c_str(), nullptr) == 0;
}

// The library's messages as its code words them, for comparisons with what was caught.
namespace messages {

inline LogCatcher::Messages::value_type Provider(int level, const std::string& text) {
  return {level, "[python provider] " + text};
}
inline auto Error(const std::string& text) { return Provider(TEV_LOG_ERROR, text); }
inline auto Warning(const std::string& text) { return Provider(TEV_LOG_WARNING, text); }
inline auto Info(const std::string& text) { return Provider(TEV_LOG_INFO, text); }
inline auto Debug(const std::string& text) { return Provider(TEV_LOG_DEBUG, text); }
inline LogCatcher::Messages::value_type EnvironmentError(const std::string& text) {
  return {TEV_LOG_ERROR, "[python environment] " + text};
}

// Logged for each script that names no function.
inline const auto kDefaultFunction =
    Debug("no argument specified for 'python-import-function'. taking default ('collect')");

// What is logged when the scripts cannot be configured: `causes`, and then what follows from them.
inline LogCatcher::Messages Refusal(LogCatcher::Messages causes) {
  causes.insert(causes.end(), {Error("could not parse all scripts options"), Error("could not read options")});
  return causes;
}

}  // namespace messages

class ProviderTest : public ::testing::Test {
 protected:
  using Options = standin::OptionList;
  using Messages = LogCatcher::Messages;

  // Without compiled files, a script that is written anew is also read anew.
  ProviderTest() { setenv("PYTHONDONTWRITEBYTECODE", "1", 1); }
  ~ProviderTest() override {
    Finalize();
    EXPECT_EQ(tev_source_array_t::live, 0);
    EXPECT_EQ(tev_opaque_events_t::live, 0);
  }

  // Writes a file into the test's directory and returns its path.
  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return dir_ / name;
  }

  // Writes a script whose function "collect", given `args`, has the body `body`, and returns its path.
  std::string Script(const std::string& name, const std::string& body, const std::string& more = "") {
    return Write(name, more + "\ndef collect(args):\n    " + body + "\n");
  }

  bool Construct(const Options& options) {
    const standin::HostOptions host_options(Library(), options);
    tev_event_provider_t* constructed = Library().Construct(host_options.get());
    if (constructed != nullptr) provider_ = constructed;
    return constructed != nullptr;
  }
  bool Initialize() { return provider_->initialize(provider_, &type_system_); }
  // Finalizes what was constructed; nothing if that is done.
  void Finalize() {
    if (provider_ != nullptr) provider_->finalize(provider_);
  }

  // Options that enable the provider by name and hold these "key=value" pairs, with ';' between, less "python-import-".
  static Options Keys(const std::string& pairs) {
    Options options{{"enable-provider", "python"}};
    std::istringstream stream(pairs);
    for (std::string pair; std::getline(stream, pair, ';');) {
      const size_t equals = pair.find('=');
      options.emplace_back("python-import-" + pair.substr(0, equals), pair.substr(equals + 1));
    }
    return options;
  }

  // Constructs with scripts of these paths and more options.
  void Configure(const std::vector<std::string>& scripts, Options options = {}) {
    options.emplace_back("enable-provider", "python");
    options.emplace_back("python-import-num-scripts", std::to_string(scripts.size()));
    for (size_t i = 0; i < scripts.size(); ++i) {
      options.emplace_back("python-import-" + std::to_string(i + 1) + "-file", scripts[i]);
    }
    ASSERT_TRUE(Construct(options));
    log_.Take();
  }
  // The same, and initializes.
  void Start(const std::vector<std::string>& scripts, const Options& options = {}) {
    ASSERT_NO_FATAL_FAILURE(Configure(scripts, options));
    ASSERT_TRUE(Initialize());
    log_.Take();
  }

  // The tags of the sources that get-sources returns; one "(null)" when it fails.
  std::vector<std::string> SourceTags() {
    const standin::SourceArray array(provider_->get_sources(provider_));
    if (!array) return {"(null)"};
    std::vector<std::string> tags;
    for (const auto& source : array->sources) tags.push_back(source->tag);
    return tags;
  }

  tev_progress_status_t Progress(uint32_t index = 0) { return provider_->progress(provider_, index, &buffer_); }
  standin::Collection Collect(uint32_t index = 0) { return standin::Collect(provider_, index, &buffer_); }

  // The value that a collection brings, as JSON; "error" where it fails.
  std::string Json(uint32_t index = 0) {
    const standin::Collection collection = Collect(index);
    if (collection.status == TEV_PROGRESS_ERROR) return "error";
    const std::string line = standin::ToJsonLine("", collection.tokens);
    const size_t value = line.find("\"data\": ") + 8;
    return line.substr(value, line.size() - value - 1);
  }

  // The first text that a collection brings; "(none)" without one.
  std::string FirstText(uint32_t index = 0) {
    for (const auto& token : Collect(index).tokens) {
      if (token.type == standin::kString) return token.payload;
    }
    return "(none)";
  }

  // The tag of a script that names none.
  static std::string HashTag(const std::string& path) {
    return "dict_" + std::to_string(std::hash<std::string>{}(path));
  }

  // What get-sources logs of the scripts: path (less `directory`), function, force-sync, tag (nothing for the one of
  // HashTag) and arguments, with '|' between, and ';' between scripts.
  std::string LoggedScripts(const std::string& directory = "") {
    log_.Take();
    SourceTags();
    std::string scripts, path;
    for (const auto& [level, text] : log_.Take()) {
      const auto field = standin::FieldIn(text);
      if (!field) continue;
      if (field->name == "script path") {
        path = field->value;
        const size_t cut = path.compare(0, directory.size(), directory) == 0 ? directory.size() : 0;
        scripts += (scripts.empty() ? "" : ";") + path.substr(cut);
      } else {
        scripts += "|" + (field->value == HashTag(path) ? "" : field->value);
      }
    }
    return scripts;
  }

  // The messages at error and warning level since the last call, for comparisons that other levels would drown.
  Messages Problems() {
    Messages problems;
    for (const auto& message : log_.Take()) {
      if (message.first <= TEV_LOG_WARNING) problems.push_back(message);
    }
    return problems;
  }

  // What scripts have written since the last call, and problems: the level's number and the line, with '|' between.
  std::string Told() {
    std::string told;
    for (const auto& [level, text] : log_.Take()) {
      if (text.rfind("[python script] ", 0) != 0 && level > TEV_LOG_WARNING) continue;
      told += (told.empty() ? "" : "|") + std::to_string(level) + text.substr(text.find(']') + 2);
    }
    return told;
  }

  TempDir dir_;
  LogCatcher log_{TEV_LOG_DEBUG};
  tev_event_provider_t* provider_ = nullptr;  // the library's; null until the first success of Construct
  tev_type_system_t type_system_;
  tev_data_serializer_t buffer_;
};

#endif  // RUBRUF_TESTS_PROVIDER_TEST_BASE_H_
