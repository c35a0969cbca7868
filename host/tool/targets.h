// Targets: the scripts, .cfg files and directories that a command line names.

#ifndef RUBRUF_HOST_TOOL_TARGETS_H_
#define RUBRUF_HOST_TOOL_TARGETS_H_

#include <string>
#include <vector>

#include "host/standin/host_options.h"
#include "host/tool/configuration.h"

namespace standin {

// One script of the command line. Keys lack their "python-import-" and number.
struct Script {
  OptionList settings;
  OptionList arguments;
};

Script FromFile(const CfgFile& file);

// Returns the options for the plug-in. A single script gets plain keys; several get numbered ones.
OptionList ScriptOptions(const std::vector<Script>& scripts);

// Returns the .cfg files of the targets: of a directory the enabled ones, of a script the one of its name beside it. A
// script without one counts as a .cfg file that names only the script. `told` receives which file configures which
// script, for targets that are no directories. Throws std::runtime_error if a file cannot be read.
std::vector<CfgFile> ReadTargets(const std::vector<std::string>& targets, Remarks* remarks,
                                 std::vector<std::string>* told);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_TARGETS_H_
