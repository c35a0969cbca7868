// Finds out which scripts a set of host options configures, as the plug-in reads it.

#ifndef RUBRUF_HOST_TOOL_SURVEY_H_
#define RUBRUF_HOST_TOOL_SURVEY_H_

#include <string>
#include <vector>

#include "host/standin/host_options.h"
#include "host/standin/plugin.h"

namespace standin {

struct ConfiguredScript {
  std::string path;
  std::string function;
  std::string tag;  // from the configuration, else a hash of the path
  bool own_module = false;
  bool tolerant = false;
  std::vector<std::string> arguments;  // NAME=VALUE

  bool tag_configured() const;
};

// Creates a provider, parses the configuration that it logs, and ends it before Python starts. Returns the scripts in
// the order of the source indexes; none if the plug-in refuses the options. The plug-in's messages are not shown,
// because the next provider logs the same ones.
std::vector<ConfiguredScript> Survey(const Plugin& plugin, const OptionList& options);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_SURVEY_H_
