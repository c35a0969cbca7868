// The layout of a field in the configuration log: a prefix, a column for "NAME:", and the value.

#include "host/standin/configuration_log.h"

namespace standin {

std::optional<LoggedField> FieldIn(const std::string& message) {
  static const std::string kPrefix = "[python provider] \t\t";
  constexpr size_t kNameColumn = 19;
  if (message.compare(0, kPrefix.size(), kPrefix) != 0 || message.size() < kPrefix.size() + kNameColumn) return {};
  const std::string name = message.substr(kPrefix.size(), kNameColumn);
  const size_t colon = name.find(':');  // an argument has blanks in this column
  return LoggedField{colon == std::string::npos ? "" : name.substr(0, colon),
                     message.substr(kPrefix.size() + kNameColumn)};
}

}  // namespace standin
