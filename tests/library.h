// What the tests of the exported library share: its functions by name, and a catcher of its messages.

#ifndef RUBRUF_TESTS_LIBRARY_H_
#define RUBRUF_TESTS_LIBRARY_H_

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "host/standin/plugin.h"
#include "utils/log/log.h"

// Where the library under test is: the one that RUBRUF_LIBRARY names, else the one of this build.
inline std::string LibraryPath() {
  const char* path = getenv("RUBRUF_LIBRARY");
  return path ? path : RUBRUF_LIBRARY_PATH;
}

// It is loaded, never linked, so that one build of the tests serves the plug-ins of every Python version. It stays
// loaded to the end of the process, for the leak checker to see what its globals hold.
inline const standin::Plugin& Library() {
  static const auto* const library = new standin::Plugin(LibraryPath());
  return *library;
}

// Makes `name` the library's function in the namespace of the test, where it hides the declared one.
#define RUBRUF_IMPORT(name) const auto name = Library().Symbol<decltype(&::name)>(#name)

// Keeps what the library logs while it lives, at `level`. One at a time.
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

  // Hands out what was caught since the last call.
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
