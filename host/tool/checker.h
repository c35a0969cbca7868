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

// Findings of one kind: how many there are, the texts of the first ones, and how many have none.
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

  // Imports the script and puts a watch on its function, for the provider to bind. An empty module takes its place if
  // that fails, and if it is `lost`: it is not imported then.
  void Bind(const ConfiguredScript& script, bool lost = false);
  // Ends what Bind has put in the plug-in's way. What is wrong with each script, before it is called.
  std::vector<Checked> Release();
  // Of the last collection, once; null when the watch was not called.
  std::optional<Checked> Take();
  // About threads of a script, by its number from 0.
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
