// The command line of rubruf-host.

#ifndef RUBRUF_HOST_TOOL_COMMAND_LINE_H_
#define RUBRUF_HOST_TOOL_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/standin/host_options.h"
#include "host/standin/plugin.h"
#include "host/tool/configuration.h"

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
  std::string log_file;  // empty: none
  bool log_syslog = false;
  Remarks remarks;                // on .cfg files that the options do not lead to any more
  std::vector<std::string> told;  // what the choice of scripts comes from, to be told

  // Of run.
  int64_t count = 1;  // of rounds; 0: without end
  double interval = 1;
  int64_t buffer_bytes = 65536;
  bool stats = false;

  // Of check.
  int64_t repeat = 1;
};

// Sends the plug-in's messages where the command line wants them. Throws std::runtime_error.
void SetUpLog(const Plugin& plugin, const CommandLine& command);

// Ends the process itself on --help (status 0) and on a usage error (status 2).
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_COMMAND_LINE_H_
