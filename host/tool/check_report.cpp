// The report: a paragraph for each script, and a last line that sums up.

#include "host/tool/check_report.h"

#include <iomanip>
#include <sstream>

namespace standin {
namespace {

std::string Counted(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined;
}

class Report {
 public:
  explicit Report(bool colour) : colour_(colour) { text_ << std::fixed << std::setprecision(2); }

  void Add(const CheckedScript& checked) {
    const std::string label = checked.source.empty() ? "" : checked.source + ": ";
    text_ << label << checked.script.path << "\n  " << checked.script.function << '('
          << Joined(checked.script.arguments) << "), tag from " << checked.tag_origin << ": ";
    if (checked.collections == 0) {
      text_ << "not collected\n";
    } else {
      text_ << 1000 * checked.seconds / static_cast<double>(checked.collections) << " ms, "
            << (checked.sound ? Counted(checked.tokens, "token") : "result kept from the plug-in") << '\n';
    }
    Add(label, "error", "31", checked.errors);
    Add(label, "warning", "33", checked.warnings);
  }

  std::string Finish(size_t scripts, size_t errors, size_t warnings) {
    text_ << Counted(scripts, "script") << ": " << Counted(errors, "error") << ", " << Counted(warnings, "warning")
          << '\n';
    return text_.str();
  }

 private:
  void Add(const std::string& label, const char* kind, const char* colour, const Findings& findings) {
    for (const std::string& finding : findings.listed) {
      text_ << "  " << Coloured(kind, colour) << ": " << label << finding << '\n';
    }
    const size_t more = findings.count - findings.listed.size();
    if (more > 0) text_ << "  and " << Counted(more, "more " + std::string(kind)) << '\n';
  }

  std::string Coloured(const std::string& text, const std::string& colour) const {
    return colour_ ? "\x1b[1;" + colour + "m" + text + "\x1b[0m" : text;
  }

  bool colour_;
  std::ostringstream text_;
};

}  // namespace

std::string ReportText(const std::vector<CheckedScript>& scripts, bool colour) {
  Report report(colour);
  size_t errors = 0;
  size_t warnings = 0;
  for (const CheckedScript& checked : scripts) {
    report.Add(checked);
    errors += checked.errors.count;
    warnings += checked.warnings.count;
  }
  return report.Finish(scripts.size(), errors, warnings);
}

}  // namespace standin
