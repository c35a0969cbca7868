// The checker: the Python modules of rubruf_checker/, in the plug-in's interpreter.

#ifndef RUBRUF_HOST_TOOL_CHECKER_H_
#define RUBRUF_HOST_TOOL_CHECKER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/standin/python_module.h"
#include "host/tool/survey.h"

namespace standin {

// Findings of one kind: their number, the texts of the first ones, and the number of those without a text.
struct Findings {
  size_t count = 0;
  std::vector<std::string> listed;
  size_t unlisted = 0;

  void Add(const std::string& text) {
    ++count;
    listed.push_back(text);
  }
  void Add(const Findings& others) {
    count += others.count;
    unlisted += others.unlisted;
    listed.insert(listed.end(), others.listed.begin(), others.listed.end());
  }
};

struct Checked {
  Findings errors;
  Findings warnings;
  double seconds = 0;  // in the script's function
};

class Checker {
 public:
  // Starts Python. The plug-in must outlive the object. All operations throw std::runtime_error as PythonModule does.
  explicit Checker(const Plugin& plugin);

  // Imports the script and wraps its function, so that the provider binds the wrapper. If the import fails, an empty
  // module takes the place of the script. A `lost` script is not imported, and gets the empty module too.
  void Bind(const ConfiguredScript& script, bool lost = false);
  // Restores what Bind has changed in modules, after the provider has bound the wrappers. Returns the faults of each
  // script that are known before its first call.
  std::vector<Checked> Release();
  // Returns the findings of the last collection, once. Null if the wrapper was not called.
  std::optional<Checked> Take();
  // Returns the warnings about threads of a script. The number counts from 0.
  Checked Threads(size_t script);

  struct Memory {
    int64_t blocks;
    int64_t resident_bytes;
  };
  Memory MemoryInUse();

 private:
  PythonModule module_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECKER_H_
