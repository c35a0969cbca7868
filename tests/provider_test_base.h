// ProviderTest: one life of the plug-in in a test, with scripts in a directory of the test's own.
//
// The provider is one per process, so ctest runs each test in its own; a test that drives several lives ends each with
// Finalize.

#ifndef RUBRUF_TESTS_PROVIDER_TEST_BASE_H_
#define RUBRUF_TESTS_PROVIDER_TEST_BASE_H_

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/standin/collector.h"
#include "host/standin/handles.h"
#include "host/standin/host_options.h"
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

class ProviderTest : public ::testing::Test {
 protected:
  using Options = standin::OptionList;
  using Messages = LogCatcher::Messages;

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

  // Constructs and initializes with scripts of these paths and more options.
  void Start(const std::vector<std::string>& scripts, Options options = {}) {
    options.emplace_back("enable-provider", "python");
    options.emplace_back("python-import-num-scripts", std::to_string(scripts.size()));
    for (size_t i = 0; i < scripts.size(); ++i) {
      options.emplace_back("python-import-" + std::to_string(i + 1) + "-file", scripts[i]);
    }
    ASSERT_TRUE(Construct(options));
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

  // The messages at error and warning level since the last call, for comparisons that other levels would drown.
  Messages Problems() {
    Messages problems;
    for (const auto& message : log_.Take()) {
      if (message.first <= TEV_LOG_WARNING) problems.push_back(message);
    }
    return problems;
  }

  TempDir dir_;
  LogCatcher log_{TEV_LOG_DEBUG};
  tev_event_provider_t* provider_ = nullptr;  // the library's; null until the first success of Construct
  tev_type_system_t type_system_;
  tev_data_serializer_t buffer_;
};

#endif  // RUBRUF_TESTS_PROVIDER_TEST_BASE_H_
