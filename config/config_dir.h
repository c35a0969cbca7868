// The configuration directory: its scan makes a script record of each `.cfg` file.

#ifndef RUBRUF_CONFIG_CONFIG_DIR_H_
#define RUBRUF_CONFIG_CONFIG_DIR_H_

#include <string>
#include <vector>

#include "provider/script_config.h"

namespace config_dir_parser {

// Parses every regular file of `directory` whose extension is ".cfg" and whose name does not begin with a dot, in the
// order in which the system lists them. Symbolic links are followed. True if all files were parsed. False after an
// error message; all records in `list` are then destroyed, also the earlier ones. If the directory cannot be opened,
// the list stays as it was.
bool parseDir(const std::string& directory, std::vector<PythonEventProvider::ScriptConfig*>& list);

}  // namespace config_dir_parser

#endif  // RUBRUF_CONFIG_CONFIG_DIR_H_
