// checker.py, which the build makes a text of the program.

#ifndef RUBRUF_HOST_TOOL_CHECKER_SOURCE_H_
#define RUBRUF_HOST_TOOL_CHECKER_SOURCE_H_

namespace standin {

extern const char kCheckerSource[];

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECKER_SOURCE_H_
