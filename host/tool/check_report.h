// What "rubruf-host check" knows of each script, and how it says so.

#ifndef RUBRUF_HOST_TOOL_CHECK_REPORT_H_
#define RUBRUF_HOST_TOOL_CHECK_REPORT_H_

#include <cstddef>
#include <string>
#include <vector>

#include "host/tool/survey.h"

namespace standin {

// Findings of one kind: how many there are, and the texts of the first ones.
struct Findings {
  size_t count = 0;
  std::vector<std::string> listed;

  void Add(const std::string& text) {
    ++count;
    listed.push_back(text);
  }
  void Add(const Findings& others) {
    count += others.count;
    listed.insert(listed.end(), others.listed.begin(), others.listed.end());
  }
};

struct CheckedScript {
  ConfiguredScript script;
  std::string source = {};  // empty: the provider did not come so far
  std::string tag_origin = {};
  bool sound = true;  // it can be called, and has returned nothing but what can be sent
  Findings errors;
  Findings warnings;
  size_t collections = 0;
  double seconds = 0;  // in the script's function, in all collections
  size_t tokens = 0;   // of the last collection
};

// All of it as lines.
std::string ReportText(const std::vector<CheckedScript>& scripts, bool colour);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECK_REPORT_H_
