// rubruf-host options: the host options that a command line stands for.

#ifndef RUBRUF_HOST_TOOL_OPTIONS_LISTING_H_
#define RUBRUF_HOST_TOOL_OPTIONS_LISTING_H_

#include <string>

#include "host/tool/command_line.h"

namespace standin {

// KEY=VALUE a line, in the order in which the keys were first given; or one line with an object (Format::kJson).
std::string ListOptions(const OptionList& options, Format format);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_OPTIONS_LISTING_H_
