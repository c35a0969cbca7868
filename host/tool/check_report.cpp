// The report of `check`: a paragraph for each script, and a last line with the totals.

#include "host/tool/check_report.h"

#include <cstdio>
#include <iostream>

#include "host/tool/printable.h"
#include "host/tool/supervisor.h"

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

std::string SummaryLine() {
  const Tally& tally = SharedTally();
  return Counted(tally.scripts, "script") + ": " + Counted(tally.errors, "error") + ", " +
         Counted(tally.warnings, "warning") + "\n";
}

}  // namespace

Report::Report(bool colour) : colour_(colour) {}

void Report::Add(const Remarks& remarks) {
  const auto add = [this](const char* kind, const char* colour, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) Write(Coloured(kind, colour) + ": " + Printable(text) + '\n');
  };
  add("error", "31", remarks.errors);
  add("warning", "33", remarks.warnings);
  add("note", "36", remarks.notes);
  SharedTally().errors += static_cast<uint32_t>(remarks.errors.size());
  SharedTally().warnings += static_cast<uint32_t>(remarks.warnings.size());
}

void Report::Begin(const CheckedScript& checked) {
  const std::string configured = checked.cfg_path.empty() ? "" : ", by " + checked.cfg_path;
  Write(Printable(checked.Name() + configured) + "\n  " + Printable(checked.script.function) + '(' +
        Printable(Joined(checked.script.arguments)) + "), tag from " + Printable(checked.tag_origin) + ": ");
  SharedTally().line_is_open = true;
}

void Report::Complete(const CheckedScript& checked) {
  std::string cost = "not collected";
  if (checked.collections > 0) {
    char milliseconds[32];
    snprintf(milliseconds, sizeof milliseconds, "%.2f ms, ",
             1000 * checked.seconds / static_cast<double>(checked.collections));
    cost = milliseconds + (checked.sound ? Counted(checked.tokens, "token") : "result kept from the plug-in");
  }
  Write(cost + '\n');
  Tally& tally = SharedTally();
  tally.line_is_open = false;
  ++tally.reported;
  tally.errors += static_cast<uint32_t>(checked.errors.count);
  tally.warnings += static_cast<uint32_t>(checked.warnings.count);
  const std::string label = checked.source.empty() ? "" : checked.source + ": ";
  Add(label, "error", "31", checked.errors);
  Add(label, "warning", "33", checked.warnings);
}

void Report::SumUp() { Write(SummaryLine()); }

bool Report::TellLoss(const std::string& who, const std::string& how) {
  Tally& tally = SharedTally();
  const bool in_paragraph = tally.line_is_open;
  const int imported = tally.importing;
  ++tally.errors;
  std::cout << (in_paragraph ? "not ended\n  " : "") << "error: " << Printable(who + ": " + how) << std::endl;
  if (imported >= 0) tally.is_lost_at_import.at(static_cast<size_t>(imported)) = true;
  if (in_paragraph) ++tally.reported;
  tally.line_is_open = false;
  tally.importing = -1;
  const bool goes_on = imported >= 0 || (in_paragraph && tally.reported < tally.scripts);
  if (!goes_on) std::cout << SummaryLine() << std::flush;
  return goes_on;
}

void Report::Add(const std::string& label, const char* kind, const char* colour, const Findings& findings) {
  for (const std::string& finding : findings.listed) {
    Write("  " + Coloured(kind, colour) + ": " + Printable(label + finding) + '\n');
  }
  if (findings.unlisted > 0) Write("  and " + Counted(findings.unlisted, "more " + std::string(kind)) + '\n');
}

std::string Report::Coloured(const std::string& text, const std::string& colour) const {
  return colour_ ? "\x1b[1;" + colour + "m" + text + "\x1b[0m" : text;
}

}  // namespace standin
