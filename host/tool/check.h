// rubruf-host check: collects from each script and reports everything that a host would stumble over, with its place.

#ifndef RUBRUF_HOST_TOOL_CHECK_H_
#define RUBRUF_HOST_TOOL_CHECK_H_

#include "host/tool/command_line.h"

namespace standin {

// True when there is no fault; warnings do not count. False as well when a signal ended it early. Throws
// std::runtime_error when the plug-in cannot be used.
bool CheckScripts(const CommandLine& command);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECK_H_
