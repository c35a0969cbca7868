// The reader of the configuration log: it finds the fields of scripts in the messages that the plug-in logs.

#ifndef RUBRUF_HOST_STANDIN_CONFIGURATION_LOG_H_
#define RUBRUF_HOST_STANDIN_CONFIGURATION_LOG_H_

#include <optional>
#include <string>

namespace standin {

// One field of a script. The first field of each script is "script path". An argument is a field without a name, whose
// value is "NAME=VALUE".
struct LoggedField {
  std::string name;
  std::string value;
};

// The field that `message` (without time and level) holds; null if it is another message.
std::optional<LoggedField> FieldIn(const std::string& message);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_CONFIGURATION_LOG_H_
