// Names the place in a result at which a collection stopped.

#ifndef RUBRUF_HOST_TOOL_PLACE_H_
#define RUBRUF_HOST_TOOL_PLACE_H_

#include <string>
#include <vector>

#include "host/standin/token.h"

namespace standin {

// Returns the place of the value that would follow `tokens`: "disks[3].name", or "the key behind disks[3].name" if a
// key would follow.
std::string PlaceBehind(const std::vector<Token>& tokens);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_PLACE_H_
