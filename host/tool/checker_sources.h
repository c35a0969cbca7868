// The Python sources in rubruf_checker/, compiled into the program as texts.

#ifndef RUBRUF_HOST_TOOL_CHECKER_SOURCES_H_
#define RUBRUF_HOST_TOOL_CHECKER_SOURCES_H_

#include <vector>

#include "host/standin/python_module.h"

namespace standin {

extern const std::vector<PythonModule::Source> kCheckerSources;

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECKER_SOURCES_H_
