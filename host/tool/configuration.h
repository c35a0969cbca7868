// Reads a configuration as the plug-in does, and tells what the plug-in passes over in silence.

#ifndef RUBRUF_HOST_TOOL_CONFIGURATION_H_
#define RUBRUF_HOST_TOOL_CONFIGURATION_H_

#include <string>
#include <vector>

#include "host/standin/host_options.h"

namespace standin {

// What there is to say, each with the file and line, or the option, that it is about.
struct Remarks {
  std::vector<std::string> errors;    // they keep all scripts from starting
  std::vector<std::string> warnings;  // they do something else than what they look like
  std::vector<std::string> notes;
};

struct CfgFile {
  std::string path;
  bool enabled = true;
  // Keys without "python-import-", each once, with its last value; "file" is always there, as a path that can be opened
  // from the working directory.
  OptionList settings = {};

  // The value of a key; empty without one.
  std::string Value(const std::string& key) const;
};

// Throws std::runtime_error where the file cannot be read.
CfgFile ReadCfgFile(const std::string& path, Remarks* remarks);

// The files of a configuration directory, in the order of its listing, disabled ones included. Files that cannot be
// read are left out, and an error.
std::vector<CfgFile> ReadCfgDirectory(const std::string& directory, Remarks* remarks);

// The enabled .cfg files to which the options lead, in the order of the scripts; none where options alone describe the
// scripts.
std::vector<CfgFile> ReadConfiguration(const OptionList& options, Remarks* remarks);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CONFIGURATION_H_
