// rubruf-host check: collects from each script and reports everything that a host would stumble over, with its place.

#ifndef RUBRUF_HOST_TOOL_CHECK_H_
#define RUBRUF_HOST_TOOL_CHECK_H_

#include "host/tool/command_line.h"

namespace standin {

// Returns true if there is no fault; warnings do not count. Returns false if a signal ended the check early. Throws
// std::runtime_error if the plug-in cannot be used.
bool CheckScripts(const CommandLine& command);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECK_H_
