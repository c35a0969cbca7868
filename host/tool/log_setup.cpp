// Sets the level and the destination of the plug-in's messages.

#include "host/tool/log_setup.h"

#include <cstdlib>
#include <stdexcept>

#include "host/standin/hosted_provider.h"
#include "utils/log/log.h"

namespace standin {

void SetUpLog(const Plugin& plugin, const CommandLine& command) {
  SetLogLevel(plugin, command.log_level);
  int level = *plugin.Symbol<decltype(&::tev_log_level)>("tev_log_level");
  const char* const from_environment = std::getenv("TEV_API_LOG_LEVEL");
  if (level < 0 && from_environment) level = static_cast<int>(std::strtol(from_environment, nullptr, 10));
  if (command.log_syslog) {
    plugin.Symbol<decltype(&::tev_init_syslog_logger)>("tev_init_syslog_logger")("rubruf-host", level);
  }
  if (command.log_file.empty()) return;
  const auto log_to = plugin.Symbol<decltype(&::tev_init_file_logger)>("tev_init_file_logger");
  if (!log_to(command.log_file.c_str(), level)) throw std::runtime_error(command.log_file + ": cannot be written");
}

}  // namespace standin
