// Tests of the library's dynamic symbols: it exports the listed names only, and needs only the host functions.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>

#include "tests/library.h"

namespace {

using Lines = std::set<std::string>;

// The lines that a shell command prints, without leading blanks. "$0" in the command is the library's path.
Lines LinesOf(const std::string& command) {
  const std::string line = "sh -c '" + command + "' '" + LibraryPath() + "'";
  // NOLINTNEXTLINE(cert-env33-c): the commands are written below.
  const std::unique_ptr<FILE, int (*)(FILE*)> output(popen(line.c_str(), "r"), pclose);
  Lines lines;
  for (char text[4096]; fscanf(output.get(), " %4095[^\n]", text) == 1;) lines.insert(text);
  return lines;
}

TEST(SymbolsTest, ExportsTheListAndNothingElse) {
  const Lines exported = LinesOf("nm -D --defined-only \"$0\" | cut -c 18-");
  Lines listed = LinesOf("sed -n \"s/^ *\\([a-z0-9_]*\\);\\$/T \\1/p\" \"" RUBRUF_EXPORTS_FILE "\"");
  EXPECT_GE(listed.size(), 40u);
  listed.insert("T _Z32python_event_provider_initializeP20tev_event_provider_tP17tev_type_system_t");
  listed.erase("T tev_log_level");
  listed.insert("D tev_log_level");
  EXPECT_EQ(exported, listed);
}

TEST(SymbolsTest, NeedsTheHostsFunctionsAndKnownLibraries) {
  const Lines needed = LinesOf(
      "nm -D --undefined-only \"$0\" | grep -vE \"U _?Py|U _ZNK?5boost10filesystem|@(GLIBC|GLIBCXX|CXXABI|GCC)_|"
      "w (_ITM_(de)?registerTMCloneTable|__gmon_start__)$\"");
  if (needed.count("U __asan_init") != 0) GTEST_SKIP() << "a library with sanitizers needs their functions too";
  EXPECT_EQ(needed, (Lines{"U tev_create_default_source", "U tev_create_source_array", "U tev_destroy_source_array",
                           "U tev_opaque_events_create", "U tev_opaque_events_delete", "U tev_opaque_events_write",
                           "U tev_source_array_append", "U tev_type_system_add_schema"}));

  // A new linker namespace has no host functions. Loading must fail there, because a call would end the process.
  ASSERT_EQ(dlmopen(LM_ID_NEWLM, LibraryPath().c_str(), RTLD_LAZY), nullptr);
  const std::string reason = dlerror();
  EXPECT_NE(reason.find("undefined symbol: tev_"), std::string::npos) << reason;
}

}  // namespace
