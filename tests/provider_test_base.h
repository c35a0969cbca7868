// ProviderTest: the fixture for tests of the provider. It writes scripts into a temporary directory and drives lives of
// the provider, from Construct and Initialize to Finalize.
//
// There is one provider per process, so ctest runs each test in a new process. A test with several lives ends each with
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

// A temporary directory, which is removed with its contents.
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

// Runs statements in the interpreter, which is found by its global symbols, as extension modules find it. False if they
// raise.
inline bool Python(const std::string& statements) {
  const auto run = reinterpret_cast<int (*)(const char*, void*)>(dlsym(RTLD_DEFAULT, "PyRun_SimpleStringFlags"));
  return run != nullptr && run(statements.c_str(), nullptr) == 0;
}

// The library's messages, for comparisons with the messages that LogCatcher kept.
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

// The messages when the scripts cannot be configured: `causes`, and then the two general ones.
inline LogCatcher::Messages Refusal(LogCatcher::Messages causes) {
  causes.insert(causes.end(), {Error("could not parse all scripts options"), Error("could not read options")});
  return causes;
}

}  // namespace messages

class ProviderTest : public ::testing::Test {
 protected:
  using Options = standin::OptionList;
  using Messages = LogCatcher::Messages;

  // Without compiled files, Python reads a script again after a test has rewritten it.
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
  // Finalizes the provider if there is one.
  void Finalize() {
    if (provider_ != nullptr) provider_->finalize(provider_);
  }

  // Options that enable the provider by name, and these "key=value" pairs. ';' separates the pairs; the keys are
  // without "python-import-".
  static Options Keys(const std::string& pairs) {
    Options options{{"enable-provider", "python"}};
    std::istringstream stream(pairs);
    for (std::string pair; std::getline(stream, pair, ';');) {
      const size_t equals = pair.find('=');
      options.emplace_back("python-import-" + pair.substr(0, equals), pair.substr(equals + 1));
    }
    return options;
  }

  // Constructs the provider with scripts at these paths and with `options`.
  void Configure(const std::vector<std::string>& scripts, Options options = {}) {
    options.emplace_back("enable-provider", "python");
    options.emplace_back("python-import-num-scripts", std::to_string(scripts.size()));
    for (size_t i = 0; i < scripts.size(); ++i) {
      options.emplace_back("python-import-" + std::to_string(i + 1) + "-file", scripts[i]);
    }
    ASSERT_TRUE(Construct(options));
    log_.Take();
  }
  // Does the same, and initializes the provider.
  void Start(const std::vector<std::string>& scripts, const Options& options = {}) {
    ASSERT_NO_FATAL_FAILURE(Configure(scripts, options));
    ASSERT_TRUE(Initialize());
    log_.Take();
  }

  // The tags of the sources that get-sources returns. One tag "(null)" if it fails.
  std::vector<std::string> SourceTags() {
    const standin::SourceArray array(provider_->get_sources(provider_));
    if (!array) return {"(null)"};
    std::vector<std::string> tags;
    for (const auto& source : array->sources) tags.push_back(source->tag);
    return tags;
  }

  tev_progress_status_t Progress(uint32_t index = 0) { return provider_->progress(provider_, index, &buffer_); }
  standin::Collection Collect(uint32_t index = 0) { return standin::Collect(provider_, index, &buffer_); }

  // Collects, and returns the data as JSON, or "error" if the collection fails.
  std::string Json(uint32_t index = 0) {
    const standin::Collection collection = Collect(index);
    if (collection.status == TEV_PROGRESS_ERROR) return "error";
    const std::string line = standin::ToJsonLine("", collection.tokens);
    const size_t value = line.find("\"data\": ") + 8;
    return line.substr(value, line.size() - value - 1);
  }

  // Collects, and returns the first text in the data, or "(none)".
  std::string FirstText(uint32_t index = 0) {
    for (const auto& token : Collect(index).tokens) {
      if (token.type == standin::kString) return token.payload;
    }
    return "(none)";
  }

  // The tag of a script that neither an option nor the script itself names.
  static std::string HashTag(const std::string& path) {
    return "dict_" + std::to_string(std::hash<std::string>{}(path));
  }

  // The scripts as get-sources logs them: path (without `directory`), function, force-sync, tag (empty if it is
  // HashTag) and arguments, separated by '|'. Scripts are separated by ';'.
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

  // The errors and warnings since the last call.
  Messages Problems() {
    Messages problems;
    for (const auto& message : log_.Take()) {
      if (message.first <= TEV_LOG_WARNING) problems.push_back(message);
    }
    return problems;
  }

  // The lines that scripts have logged or printed since the last call, errors and warnings: each with its level's
  // number before it, separated by '|'.
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
  tev_event_provider_t* provider_ = nullptr;  // borrowed; null until Construct has succeeded once
  tev_type_system_t type_system_;
  tev_data_serializer_t buffer_;
};

#endif  // RUBRUF_TESTS_PROVIDER_TEST_BASE_H_
