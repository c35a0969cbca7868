// Statistics: sums and extremes of the cost of collections, per source.

#include "host/tool/statistics.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace standin {
namespace {

double Milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

size_t Bytes(const Collection& collection) {
  size_t bytes = 0;
  for (const Token& token : collection.tokens) bytes += token.bytes();
  return bytes;
}

}  // namespace

std::string CostLine(const std::string& source, const Collection& collection) {
  std::ostringstream line;
  line << std::fixed << std::setprecision(3) << source << ": script " << Milliseconds(collection.script_time)
       << " ms, walk " << Milliseconds(collection.walk_time) << " ms, " << collection.tokens.size() << " tokens, "
       << Bytes(collection) << " bytes, " << collection.refusals << " refusals";
  return line.str();
}

void Statistics::Range::Add(double value, bool first) {
  min = first ? value : std::min(min, value);
  max = first ? value : std::max(max, value);
  sum += value;
}

void Statistics::Add(const std::string& source, const Collection& collection) {
  Costs& costs = sources_[source];
  const bool first = costs.count++ == 0;
  costs.script_ms.Add(Milliseconds(collection.script_time), first);
  costs.walk_ms.Add(Milliseconds(collection.walk_time), first);
  costs.tokens.Add(static_cast<double>(collection.tokens.size()), first);
  costs.bytes.Add(static_cast<double>(Bytes(collection)), first);
  costs.refusals += collection.refusals;
}

std::string Statistics::Table() const {
  size_t width = 6;
  for (const auto& [source, costs] : sources_) width = std::max(width, source.size());
  std::ostringstream table;
  table << std::fixed << std::left << std::setw(static_cast<int>(width)) << "source" << std::right
        << "   count   script ms: min   mean    max   walk ms: min   mean    max   tokens: min   mean    max"
        << "   bytes: min    mean     max   refusals\n";
  for (const auto& [source, costs] : sources_) {
    const auto cells = [&table, count = static_cast<double>(costs.count)](const Range& range, int first, int others) {
      table << std::setw(first) << range.min << std::setw(others) << range.sum / count << std::setw(others)
            << range.max;
    };
    table << std::left << std::setw(static_cast<int>(width)) << source << std::right << std::setw(8) << costs.count
          << std::setprecision(2);
    cells(costs.script_ms, 17, 7);
    cells(costs.walk_ms, 15, 7);
    table << std::setprecision(0);
    cells(costs.tokens, 14, 7);
    cells(costs.bytes, 13, 8);
    table << std::setw(11) << costs.refusals << '\n';
  }
  return table.str();
}

}  // namespace standin
