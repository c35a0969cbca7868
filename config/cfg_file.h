// The parser of `.cfg` files: it turns one file into one script record.
//
// Each line of a file is "key = value". There are no sections, no quoting and no continuation lines. A key is a
// script's option key without "python-import-". The parser collects the options of a file in a temporary dictionary,
// from which the record is read. It runs on the thread that configures the provider and keeps nothing between calls.

#ifndef RUBRUF_CONFIG_CFG_FILE_H_
#define RUBRUF_CONFIG_CFG_FILE_H_

#include <string>
#include <vector>

#include "provider/script_config.h"
#include "utils/dict/dict.h"

namespace config_dir_parser {

// Parses the file at `path` and appends its record to `list`, which owns it. If the file's "enable" line disables the
// script, no record is made and the result is true; `force` ignores that line. False, with `list` unchanged, if the
// file cannot be read or names no usable script, if the list is full, or if memory runs out. The reason is logged,
// except if memory ran out while an option was stored.
bool parseCfgFile(const std::string& path, std::vector<PythonEventProvider::ScriptConfig*>& list, bool force);

// Stores the option that `line` sets, if it sets one. `path` is the path of the `.cfg` file. False if memory ran out.
bool addLineToTevDict(const std::string& line, tev_custom_options* dictionary, const std::string& path);

// Stores `value` as the script's path. A relative path is relative to the directory of the `.cfg` file at `path`. False
// if memory ran out.
bool addFileName(const std::string& value, tev_custom_options* dictionary, const std::string& path);

// Unless a script path is stored already, stores `path` with its extension replaced by ".py". False if memory ran out.
bool resolveFileName(tev_custom_options* dictionary, const std::string& path);

// True if the stored options enable the script. Without an "enable" option it is enabled.
bool isEnabled(const tev_custom_options* dictionary);

}  // namespace config_dir_parser

#endif  // RUBRUF_CONFIG_CFG_FILE_H_
