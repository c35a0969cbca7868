// The report of `check`: the findings about each script, and their text.

#ifndef RUBRUF_HOST_TOOL_CHECK_REPORT_H_
#define RUBRUF_HOST_TOOL_CHECK_REPORT_H_

#include <cstddef>
#include <string>
#include <vector>

#include "host/tool/checker.h"
#include "host/tool/configuration.h"
#include "host/tool/output.h"
#include "host/tool/survey.h"

namespace standin {

struct CheckedScript {
  ConfiguredScript script;
  std::string cfg_path = {};  // of the file that configures it, if one does
  std::string source = {};    // empty if the provider could not be initialized
  std::string tag_origin = {};
  bool sound = true;  // it can be called, and everything that it returned can be sent
  Findings errors;
  Findings warnings;
  size_t collections = 0;
  double seconds = 0;  // in the script's function, in all collections
  size_t tokens = 0;   // of the last collection

  // The name of the script in the report.
  std::string Name() const { return (source.empty() ? "" : source + ": ") + script.path; }
};

// Writes the report while the check runs, so that the user sees how far the check is.
class Report {
 public:
  explicit Report(bool colour);

  // Writes the remarks on the configuration.
  void Add(const Remarks& remarks);
  // Write the paragraph of a script: the part that is known before the call, and the rest.
  void Begin(const CheckedScript& checked);
  void Complete(const CheckedScript& checked);
  // Writes the last line.
  void SumUp();

  // Called in the supervisor: writes what ended a worker. Returns true if another worker is to go on with the next
  // script, and false if the report is complete.
  static bool TellLoss(const std::string& who, const std::string& how);

 private:
  void Add(const std::string& label, const char* kind, const char* colour, const Findings& findings);
  std::string Coloured(const std::string& text, const std::string& colour) const;
  void Write(const std::string& text) { output_.Write(text); }

  bool colour_;
  Output output_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_CHECK_REPORT_H_
