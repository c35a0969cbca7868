// The survey of configured scripts: parses the configuration that the plug-in logs.

#include "host/tool/survey.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "host/standin/configuration_log.h"
#include "host/standin/hosted_provider.h"
#include "utils/log/log.h"

namespace standin {
namespace {

// Adds the field of a script that `message` logs.
void Read(const std::string& message, std::vector<ConfiguredScript>* scripts) {
  const std::optional<LoggedField> field = FieldIn(message);
  if (!field) return;
  if (field->name == "script path") scripts->emplace_back();
  if (scripts->empty()) return;
  ConfiguredScript& script = scripts->back();
  const bool on = field->value == "true";
  if (field->name == "script path") script.path = field->value;
  if (field->name == "function name") script.function = field->value;
  if (field->name == "tag") script.tag = field->value;
  if (field->name == "own_module") script.own_module = on;
  if (field->name == "tolerant") script.tolerant = on;
  if (field->name.empty()) script.arguments.push_back(field->value);
}

// Writes the plug-in's messages to memory while it lives. A log function would get long messages cut.
class LogFile {
 public:
  explicit LogFile(const Plugin& plugin)
      : plugin_(plugin),
        level_(*plugin.Symbol<decltype(&::tev_log_level)>("tev_log_level")),
        memory_(memfd_create("log", MFD_CLOEXEC)) {
    if (memory_ < 0) throw std::system_error(errno, std::generic_category(), "cannot keep messages");
    const std::string path = "/proc/self/fd/" + std::to_string(memory_);
    plugin.Symbol<decltype(&::tev_init_file_logger)>("tev_init_file_logger")(path.c_str(), TEV_LOG_INFO);
  }
  ~LogFile() {
    plugin_.Symbol<decltype(&::tev_close_logger)>("tev_close_logger")();
    plugin_.Symbol<decltype(&::tev_init_stderr_logger)>("tev_init_stderr_logger")(level_);
    close(memory_);
  }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Each message without its time and level. A line without them goes on with the message before it.
  std::vector<std::string> Messages() const {
    std::ifstream file("/proc/self/fd/" + std::to_string(memory_));
    std::vector<std::string> messages;
    for (std::string line; std::getline(file, line);) {
      static const std::string kLevel = "] [info] ";
      const size_t level = line.find(kLevel);
      if (level == kTimeLength) {
        messages.push_back(line.substr(level + kLevel.size()));
      } else if (!messages.empty()) {
        messages.back() += '\n' + line;
      }
    }
    return messages;
  }

 private:
  static constexpr size_t kTimeLength = sizeof "[2026-11-22 22:15:00.012" - 1;

  const Plugin& plugin_;
  int level_;
  int memory_;
};

}  // namespace

// The plug-in hashes the path with the same function, whose seed is constant.
bool ConfiguredScript::tag_configured() const {
  return tag != "dict_" + std::to_string(std::hash<std::string>{}(path));
}

std::vector<ConfiguredScript> Survey(const Plugin& plugin, const OptionList& options) {
  std::vector<ConfiguredScript> scripts;
  const LogFile log(plugin);
  try {
    HostedProvider(plugin, options).Sources();
  } catch (const std::runtime_error&) {
    return {};
  }
  for (const std::string& message : log.Messages()) Read(message, &scripts);
  return scripts;
}

}  // namespace standin
