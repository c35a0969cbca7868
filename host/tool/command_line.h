// The command line of rubruf-host.

#ifndef RUBRUF_HOST_TOOL_COMMAND_LINE_H_
#define RUBRUF_HOST_TOOL_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "host/standin/host_options.h"

namespace standin {

enum class Action { kRun, kCheck, kOptions };
enum class Format { kDefault, kJson, kPretty, kTokens };

struct CommandLine {
  Action action = Action::kRun;
  OptionList options;                // for the plug-in
  Format format = Format::kDefault;  // run: JSON; options: KEY=VALUE

  // Of run and check.
  std::string library;
  std::optional<int> log_level;

  // Of run.
  int64_t count = 1;  // of rounds; 0: without end
  double interval = 1;
  int64_t buffer_bytes = 65536;
  bool stats = false;

  // Of check.
  int64_t repeat = 1;
};

// Ends the process itself on --help (status 0) and on a usage error (status 2).
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_COMMAND_LINE_H_
