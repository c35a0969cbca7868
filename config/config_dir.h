// The configuration directory: a script record for each of its .cfg files.

#ifndef RUBRUF_CONFIG_CONFIG_DIR_H_
#define RUBRUF_CONFIG_CONFIG_DIR_H_

#include <string>
#include <vector>

#include "provider/script_config.h"

namespace config_dir_parser {

// Parses every visible regular file of `directory` with the extension ".cfg", symbolic links followed, in the order of
// the directory's own listing. True when all were parsed. False after a message: all records in `list` are then
// destroyed, those that stood there before included, save when the directory cannot be opened, which leaves the list as
// it was.
bool parseDir(const std::string& directory, std::vector<PythonEventProvider::ScriptConfig*>& list);

}  // namespace config_dir_parser

#endif  // RUBRUF_CONFIG_CONFIG_DIR_H_
