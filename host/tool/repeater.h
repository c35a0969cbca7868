// The option --watch: runs the command again whenever a script or .cfg file changes.

#ifndef RUBRUF_HOST_TOOL_REPEATER_H_
#define RUBRUF_HOST_TOOL_REPEATER_H_

#include <functional>
#include <optional>

#include "host/tool/command_line.h"

namespace standin {

// Parses the command line again, because it reads .cfg files. Returns null and sets the exit status if it is wrong.
using ReadCommand = std::function<std::optional<CommandLine>(int* status)>;

// Runs the command in a child process, and again after each change, until an interrupt or SIGTERM, which the child gets
// too. A change ends a command that is still running. Returns the exit status of the last child. Throws
// std::system_error.
int RepeatOnChange(const ReadCommand& read_command, const std::function<bool(const CommandLine&)>& execute);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_REPEATER_H_
