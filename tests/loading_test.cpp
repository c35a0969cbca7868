// Tests of loading: in a host with functions of the same names, repeatedly, and as two copies.
//
// This test process has its own function for each name that the library exports (traps.cpp.in); all of them abort.

#include <dlfcn.h>
#include <unistd.h>

#include "host/standin/hosted_provider.h"
#include "tests/provider_test_base.h"

namespace {

using standin::Plugin, standin::Token;

// Runs one life of the provider. Its first key must get ID 0, so the library must be newly loaded.
void Live(const Plugin& library, const std::string& more = "") {
  const TempDir dir;
  std::ofstream(dir / "s.py") << more << "def get_tag(): return 'tag'\ndef get_app_id(): return 'not asked'\n"
                              << "def collect(args): return {'key': args['x']}\n";
  std::ofstream(dir / "s.cfg") << "force-sync=1\narg-x=from the file";
  standin::SetLogLevel(library, TEV_LOG_ERROR);
  standin::HostedProvider provider(library, {{"python-import-config-dir", dir / ""},
                                             {"python-import-app-id", "00112233-4455-6677-8899-aabbccddeeff"}});
  provider.Initialize();
  EXPECT_EQ(provider.Sources(), std::vector<std::string>{"dict_tag"});
  tev_data_serializer_t buffer;
  const standin::Collection collection = provider.Collect(0, &buffer);
  ASSERT_EQ(collection.status, TEV_PROGRESS_DONE_FORCE_SYNC);
  EXPECT_EQ(collection.tokens[2], (Token{standin::kKeyName, 0, "key"}));
  EXPECT_EQ(collection.tokens[3], (Token{standin::kString, 0, "from the file"}));
}

TEST(LoadingTest, CallsItsOwnFunctionsAndNotTheHosts) {
  const Plugin library(LibraryPath());
  void* const trap = dlsym(RTLD_DEFAULT, "tev_dict_get");
  ASSERT_TRUE(trap != nullptr && trap != library.Symbol<void*>("tev_dict_get"));
  EXPECT_DEATH(reinterpret_cast<void (*)()>(trap)(), "");
  Live(library);
}

TEST(LoadingTest, KeepsNoStateWhenUnloaded) {
  for (int i = 0; i < 100; ++i) {
    {
      const Plugin library(LibraryPath());
      if (i % 10 == 0) Live(library);
    }
    ASSERT_EQ(dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << i;
  }
}

TEST(LoadingTest, KeepsPythonLoadedForRunningThreads) {
  for (int i = 0; i < 2; ++i) {
    Live(Plugin(LibraryPath()),
         "import threading, time\n"
         "threading.Thread(target=lambda: [time.sleep(0.001) for _ in iter(int, 1)], daemon=True).start()\n");
    usleep(50000);
  }
}

TEST(LoadingTest, SharesStateWithALinkButNotWithACopy) {
  const TempDir dir;
  std::filesystem::create_symlink(LibraryPath(), dir / "link.so");
  std::filesystem::copy_file(LibraryPath(), dir / "copy.so");
  const Plugin original(LibraryPath());
  const Plugin copy(dir / "copy.so");
  EXPECT_EQ(Plugin(dir / "link.so").Symbol<void*>("tev_dict_get"), original.Symbol<void*>("tev_dict_get"));
  EXPECT_NE(copy.Symbol<void*>("tev_dict_get"), original.Symbol<void*>("tev_dict_get"));
  for (const Plugin* library : {&original, &copy}) Live(*library);
}

}  // namespace
