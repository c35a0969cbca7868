// rubruf-host run: collects in rounds and prints what arrives.

#ifndef RUBRUF_HOST_TOOL_RUN_H_
#define RUBRUF_HOST_TOOL_RUN_H_

#include "host/tool/command_line.h"

namespace standin {

// Returns true if every collection succeeded. Reports failures on standard error. Throws std::runtime_error if the
// plug-in cannot be used.
bool Run(const CommandLine& command);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_RUN_H_
