// Helpers for all tests of the library: its path, its functions by name, and LogCatcher, which keeps its messages.

#ifndef RUBRUF_TESTS_LIBRARY_H_
#define RUBRUF_TESTS_LIBRARY_H_

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "host/standin/plugin.h"
#include "utils/log/log.h"

// The path of the library under test: the value of RUBRUF_LIBRARY, or else the library of this build.
inline std::string LibraryPath() {
  const char* path = getenv("RUBRUF_LIBRARY");
  return path ? path : RUBRUF_LIBRARY_PATH;
}

// The library under test. It is loaded and not linked, so that one build of the tests works with the plug-ins of all
// Python versions. It stays loaded until the process ends, so that the leak checker sees its globals.
inline const standin::Plugin& Library() {
  static const auto* const library = new standin::Plugin(LibraryPath());
  return *library;
}

// Defines `name` in the test's namespace as the function of the loaded library. It hides the declared function.
#define RUBRUF_IMPORT(name) const auto name = Library().Symbol<decltype(&::name)>(#name)

// Keeps the messages that the library logs at `level` while this object exists. Only one may exist at a time.
class LogCatcher {
 public:
  using Messages = std::vector<std::pair<int, std::string>>;

  explicit LogCatcher(int level) {
    messages_.clear();
    Install(Append, level);
  }
  ~LogCatcher() { Install(nullptr, -1); }
  LogCatcher(const LogCatcher&) = delete;
  LogCatcher& operator=(const LogCatcher&) = delete;

  // Returns the messages since the last call.
  Messages Take() { return std::exchange(messages_, {}); }

 private:
  static void Append(int level, const char* message) { messages_.emplace_back(level, message); }
  static void Install(tev_log_func_t func, int level) {
    RUBRUF_IMPORT(set_log_func);
    set_log_func(func, level);
  }

  static inline Messages messages_;
};

#endif  // RUBRUF_TESTS_LIBRARY_H_
