// What "rubruf-host check" knows of each script, and how it says so.

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
  std::string source = {};    // empty: the provider did not come so far
  std::string tag_origin = {};
  bool sound = true;  // it can be called, and has returned nothing but what can be sent
  Findings errors;
  Findings warnings;
  size_t collections = 0;
  double seconds = 0;  // in the script's function, in all collections
  size_t tokens = 0;   // of the last collection

  // How the report calls it.
  std::string Name() const { return (source.empty() ? "" : source + ": ") + script.path; }
};

// Writes the report as the check goes on, so that it shows how far that came.
class Report {
 public:
  explicit Report(bool colour);

  // What there is to say of the configuration.
  void Add(const Remarks& remarks);
  // The paragraph of a script: what is known before it is called, and then the rest.
  void Begin(const CheckedScript& checked);
  void Complete(const CheckedScript& checked);
  // The last line.
  void SumUp();

  // In the supervisor: what ended a worker. True if another one is to go on with the next script; else the report is
  // complete.
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
