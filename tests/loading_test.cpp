// Tests of the library in a process that is full of its names, loaded again and again, and under two names.
//
// This host holds a function of its own for each one that the library exports (doubles.cpp.in); all of them abort.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "host/standin/hosted_provider.h"
#include "tests/provider_test_base.h"

namespace {

using standin::Plugin;

std::string LibraryPath() {
  const char* path = getenv("RUBRUF_LIBRARY");
  return path ? path : RUBRUF_LIBRARY_PATH;
}

class LoadingTest : public ::testing::Test {
 protected:
  LoadingTest() {
    std::ofstream(dir_ / "s.py") << "def get_tag(): return 'tag'\ndef collect(args): return [{'key': args['x']}]\n";
    std::ofstream(dir_ / "s.cfg") << "arg-x=from the file";
  }

  // A whole life, in which the first key must be the library's first one.
  void Live(const Plugin& library) {
    standin::SetLogLevel(library, TEV_LOG_ERROR);
    standin::HostedProvider provider(library, {{"python-import-config-dir", dir_ / ""},
                                               {"python-import-app-id", "00112233-4455-6677-8899-aabbccddeeff"}});
    provider.Initialize();
    EXPECT_EQ(provider.Sources(), std::vector<std::string>{"dict_tag"});
    tev_data_serializer_t buffer;
    const std::vector<standin::Token> tokens = provider.Collect(0, &buffer).tokens;
    ASSERT_EQ(tokens.size(), 7u);
    EXPECT_EQ(tokens[3], (standin::Token{standin::kKeyName, 0, "key"}));
    EXPECT_EQ(tokens[4], (standin::Token{standin::kString, 0, "from the file"}));
  }

  static bool IsLoaded() { return dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr; }

  TempDir dir_;
};

TEST_F(LoadingTest, CallsItsOwnFunctionsAndNotTheHosts) {
  const Plugin library(LibraryPath());
  for (const char* name : {"tev_dict_get", "_tev_log", "construct_event_provider"}) {
    void* const host = dlsym(RTLD_DEFAULT, name);
    ASSERT_NE(host, nullptr) << name;
    EXPECT_NE(host, library.Symbol<void*>(name)) << name;
  }
  Live(library);
  EXPECT_DEATH(reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "tev_dict_get"))(), "") << "the host's is a trap";
}

TEST_F(LoadingTest, IsGoneWhenUnloadedAndNewWhenLoadedAgain) {
  for (int i = 0; i < 100; ++i) {
    {
      const Plugin library(LibraryPath());
      if (i % 10 == 0) Live(library);
    }
    ASSERT_FALSE(IsLoaded()) << i;
  }
}

TEST_F(LoadingTest, IsOneUnderALinkAndTwoAsACopy) {
  const std::string link = dir_ / "link.so";
  const std::string copy = dir_ / "copy.so";
  std::filesystem::create_symlink(LibraryPath(), link);
  std::filesystem::copy_file(LibraryPath(), copy);
  const Plugin original(LibraryPath());
  EXPECT_EQ(Plugin(link).Symbol<void*>("tev_dict_get"), original.Symbol<void*>("tev_dict_get"));
  const Plugin second(copy);
  EXPECT_NE(second.Symbol<void*>("tev_dict_get"), original.Symbol<void*>("tev_dict_get"));
  for (const Plugin* library : {&original, &second}) Live(*library);
}

}  // namespace
