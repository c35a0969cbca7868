// Statistics: the cost of collections, as a line for each and a table for all.

#ifndef RUBRUF_HOST_TOOL_STATISTICS_H_
#define RUBRUF_HOST_TOOL_STATISTICS_H_

#include <map>
#include <string>

#include "host/standin/collector.h"

namespace standin {

// "dict_disks: script 1.204 ms, walk 0.031 ms, 64 tokens, 1523 bytes, 0 refusals", without a line end.
std::string CostLine(const std::string& source, const Collection& collection);

class Statistics {
 public:
  void Add(const std::string& source, const Collection& collection);

  // A row for each source: the number of its collections, and the least, mean and greatest cost of one.
  std::string Table() const;

 private:
  struct Range {
    double min = 0;
    double sum = 0;
    double max = 0;

    void Add(double value, bool first);
  };
  struct Costs {
    size_t count = 0;
    Range script_ms;
    Range walk_ms;
    Range tokens;
    Range bytes;
    size_t refusals = 0;
  };

  std::map<std::string, Costs> sources_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_STATISTICS_H_
