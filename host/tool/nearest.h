// Suggests a known name for an unknown one.

#ifndef RUBRUF_HOST_TOOL_NEAREST_H_
#define RUBRUF_HOST_TOOL_NEAREST_H_

#include <string>
#include <vector>

namespace standin {

// "did you mean tag?" for a known name like `name`; "known are file, tag, ..." where none is like it.
std::string Suggestion(const std::string& name, const std::vector<std::string>& known);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_NEAREST_H_
