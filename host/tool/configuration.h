// Reads a configuration as the plug-in does, and reports what the plug-in ignores without a message.

#ifndef RUBRUF_HOST_TOOL_CONFIGURATION_H_
#define RUBRUF_HOST_TOOL_CONFIGURATION_H_

#include <string>
#include <vector>

#include "host/standin/host_options.h"

namespace standin {

// Remarks on a configuration. Each names its file and line, or its option.
struct Remarks {
  std::vector<std::string> errors;    // they keep all scripts from starting
  std::vector<std::string> warnings;  // the configuration does something else than it seems to
  std::vector<std::string> notes;
};

struct CfgFile {
  std::string path;
  bool enabled = true;
  // Keys without "python-import-", each once, with its last value. "file" is always present, as a path that can be
  // opened from the working directory.
  OptionList settings = {};

  // Returns the value of a key; empty if there is none.
  std::string Value(const std::string& key) const;
};

// Throws std::runtime_error where the file cannot be read.
CfgFile ReadCfgFile(const std::string& path, Remarks* remarks);

// Returns the files of a configuration directory in the order of its listing, disabled ones included. A file that
// cannot be read is left out and reported as an error.
std::vector<CfgFile> ReadCfgDirectory(const std::string& directory, Remarks* remarks);

// Returns the enabled .cfg files that the options refer to, in the order of the scripts. Empty if the options describe
// the scripts themselves.
std::vector<CfgFile> ReadConfiguration(const OptionList& options, Remarks* remarks);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CONFIGURATION_H_
