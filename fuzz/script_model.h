// A configured script, as the configuration log must show it, and what the plug-in has logged.

#ifndef RUBRUF_FUZZ_SCRIPT_MODEL_H_
#define RUBRUF_FUZZ_SCRIPT_MODEL_H_

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "utils/log/log.h"

namespace fuzz {

using Lines = std::vector<std::string>;

inline const std::string kBlanks = " \t\n\v\f\r";

inline bool IsTrue(const std::string& text) { return text == "1" || text == "True" || text == "true"; }

// A message as a log function gets it.
inline std::string Message(const std::string& text) { return ("[python provider] " + text).substr(0, 998); }

// What the plug-in has logged at info level and above since the last call. The arguments of a script are sorted: their
// order is the dictionary's business. Each input ends with a call: after one that leaves more allocated than it found,
// the fuzzer spends its time on a search for leaks.
inline Lines TakeLog() {
  static Lines lines;
  set_log_func([](int, const char* message) { lines.emplace_back(message); }, TEV_LOG_INFO);
  const auto is_argument = [](const std::string& line) { return line.compare(0, 22, Message("\t\t  ")) == 0; };
  for (auto begin = lines.begin(); begin != lines.end();) {
    begin = std::find_if(begin, lines.end(), is_argument);
    const auto end = std::find_if_not(begin, lines.end(), is_argument);
    std::sort(begin, end);
    begin = end;
  }
  return std::exchange(lines, {});
}

struct ScriptModel {
  Lines Log(size_t index) const {
    Lines lines{Message("\tscript #" + std::to_string(index) + ":"), Message("\t\tscript path:       " + path),
                Message("\t\tfunction name:     " + (function.empty() ? "collect" : function)),
                Message(std::string("\t\tforce_sync:        ") + (IsTrue(force_sync) ? "true" : "false")),
                Message("\t\ttag:               " + tag)};
    if (!arguments.empty()) lines.push_back(Message("\t\tscript dictionary:"));
    for (const auto& [name, value] : arguments) {
      lines.push_back(Message("\t\t" + std::string(19, ' ') + name + "=" + value.value_or("(null)")));
    }
    std::sort(lines.end() - static_cast<std::ptrdiff_t>(arguments.size()), lines.end());
    return lines;
  }

  std::string path;
  std::string function;  // the text of the option, as is the next one
  std::string force_sync;
  std::string tag;  // empty, or "dict_" and a text
  std::map<std::string, std::optional<std::string>> arguments = {};
};

}  // namespace fuzz

#endif  // RUBRUF_FUZZ_SCRIPT_MODEL_H_
