// The .cfg file parser: turns one file into one script record.
//
// A file has a "key = value" a line, without sections, quoting or continuation; the keys are a script's option keys
// less "python-import-". The parser collects them in a temporary options dictionary, from which the record is read. It
// runs on the thread that configures the provider and keeps nothing between calls.

#ifndef RUBRUF_CONFIG_CFG_FILE_H_
#define RUBRUF_CONFIG_CFG_FILE_H_

#include <string>
#include <vector>

#include "provider/script_config.h"
#include "utils/dict/dict.h"

namespace config_dir_parser {

// Parses the file at `path` and appends its record, owned by `list`. True when the file was read, also when its
// "enable" line disables it and no record is made; `force` ignores that line. False, with `list` as it was, when the
// file cannot be read or names no usable script, when the list is full, or when memory runs out; the reason has been
// logged, save where memory did not suffice for an option.
bool parseCfgFile(const std::string& path, std::vector<PythonEventProvider::ScriptConfig*>& list, bool force);

// Stores the option that `line` of the file at `path` sets, if it sets one. False when memory ran out.
bool addLineToTevDict(const std::string& line, tev_custom_options* dictionary, const std::string& path);

// Stores the script path `value`: as it is when absolute, else below the directory of the file at `path`.
bool addFileName(const std::string& value, tev_custom_options* dictionary, const std::string& path);

// Stores the path of the file itself with the extension ".py", unless a script path is stored already.
bool resolveFileName(tev_custom_options* dictionary, const std::string& path);

// Whether the stored options enable the script; without the flag they do.
bool isEnabled(const tev_custom_options* dictionary);

}  // namespace config_dir_parser

#endif  // RUBRUF_CONFIG_CFG_FILE_H_
