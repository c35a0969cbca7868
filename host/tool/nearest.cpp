// Suggestions for misspelt names, by edit distance. Case and the kind of dash do not matter.

#include "host/tool/nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace standin {
namespace {

std::string Plain(std::string name) {
  for (char& c : name) c = c == '_' ? '-' : static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return name;
}

size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (const char c : a) {
    size_t diagonal = row[0]++;
    for (size_t k = 0; k < b.size(); ++k) {
      const size_t replaced = diagonal + (c == b[k] ? 0 : 1);
      diagonal = row[k + 1];
      row[k + 1] = std::min({replaced, row[k] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string Suggestion(const std::string& name, const std::vector<std::string>& known) {
  const std::string plain = Plain(name);
  std::string all;
  std::string nearest;
  size_t least = std::max<size_t>(1, plain.size() / 2) + 1;
  for (const std::string& candidate : known) {
    all += (all.empty() ? "" : ", ") + candidate;
    const std::string beginning = Plain(candidate).substr(0, std::max<size_t>(3, plain.size()));
    const size_t distance = beginning == plain ? 0 : Distance(plain, Plain(candidate));
    if (distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest.empty() ? "known are " + all : "did you mean " + nearest + "?";
}

}  // namespace standin
