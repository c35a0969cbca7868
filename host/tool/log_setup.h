// Sends the plug-in's messages where the command line wants them.

#ifndef RUBRUF_HOST_TOOL_LOG_SETUP_H_
#define RUBRUF_HOST_TOOL_LOG_SETUP_H_

#include "host/standin/plugin.h"
#include "host/tool/command_line.h"

namespace standin {

// Throws std::runtime_error if the log file cannot be written.
void SetUpLog(const Plugin& plugin, const CommandLine& command);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_LOG_SETUP_H_
