// CommandLine: what the arguments of rubruf-host ask for.

#ifndef RUBRUF_HOST_TOOL_COMMAND_LINE_H_
#define RUBRUF_HOST_TOOL_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/standin/host_options.h"
#include "host/tool/configuration.h"

namespace standin {

enum class Action { kRun, kCheck, kOptions };
enum class Format { kDefault, kJson, kPretty, kTokens };

struct CommandLine {
  Action action = Action::kRun;
  OptionList options;                // for the plug-in
  Format format = Format::kDefault;  // run: JSON; options: KEY=VALUE

  // Of run and check.
  std::vector<std::string> targets;  // scripts, .cfg files and directories, as they were named
  std::string only;                  // the one source to collect from, if only the scripts know its name; empty: all
  bool watch = false;
  std::string library;
  std::optional<int> log_level;
  std::string log_file;  // empty: none
  bool log_syslog = false;
  Remarks remarks;                // on .cfg files that are no longer visible in the options
  std::vector<std::string> told;  // messages for the user about how the scripts were chosen

  // Of run.
  int64_t count = 1;  // number of rounds; 0: until interrupted
  double interval = 1;
  int64_t buffer_bytes = 65536;
  bool stats = false;

  // Of check.
  int64_t repeat = 1;
};

// Returns whether to collect from the source.
bool Wants(const CommandLine& command, const std::string& source);
// Returns the error message for an --only that names no source.
std::string NoSource(const std::string& only, const std::vector<std::string>& sources);

// Parses the command line, and reads the .cfg files that it names. Returns null and sets the exit status after --help
// or
// --version (status 0), and after a usage error (status 2).
std::optional<CommandLine> ParseCommandLine(int argc, char** argv, int* status);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_COMMAND_LINE_H_
