// Which scripts a set of host options stands for, as the plug-in reads it.

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
  std::string tag;  // from the configuration, else the one that is made from the path
  bool own_module = false;
  bool tolerant = false;
  std::vector<std::string> arguments;  // NAME=VALUE

  bool tag_configured() const;
};

// Asks the plug-in, through the configuration that it logs, in a life of the provider that ends before Python starts.
// In the order of the source indexes; none when the plug-in refuses the options. The plug-in's messages are not shown:
// those of the next life are the same.
std::vector<ConfiguredScript> Survey(const Plugin& plugin, const OptionList& options);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_SURVEY_H_
