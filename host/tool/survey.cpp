// Reading the configuration log.

#include "host/tool/survey.h"

#include <functional>
#include <stdexcept>

#include "host/standin/hosted_provider.h"
#include "utils/log/log.h"

namespace standin {
namespace {

std::vector<ConfiguredScript>* reading = nullptr;

// The text behind `beginning`; null when `message` begins otherwise.
const char* Behind(const std::string& beginning, const char* message) {
  return std::string(message).compare(0, beginning.size(), beginning) == 0 ? message + beginning.size() : nullptr;
}

void ReadMessage(int /*level*/, const char* message) {
  static const std::string kProvider = "[python provider] \t";
  static const std::string kPair = kProvider + "\t" + std::string(19, ' ');
  if (Behind(kProvider + "script #", message)) {
    reading->emplace_back();
  } else if (reading->empty()) {
    return;
  } else if (const char* path = Behind(kProvider + "\tscript path:       ", message)) {
    reading->back().path = path;
  } else if (const char* function = Behind(kProvider + "\tfunction name:     ", message)) {
    reading->back().function = function;
  } else if (const char* tag = Behind(kProvider + "\ttag:               ", message)) {
    reading->back().tag = tag;
  } else if (const char* pair = Behind(kPair, message)) {
    reading->back().arguments.emplace_back(pair);
  }
}

// Has the plug-in's messages read while it lives.
class Reader {
 public:
  Reader(const Plugin& plugin, std::vector<ConfiguredScript>* scripts)
      : set_log_func_(plugin.Symbol<decltype(&::set_log_func)>("set_log_func")),
        level_(*plugin.Symbol<decltype(&::tev_log_level)>("tev_log_level")) {
    reading = scripts;
    set_log_func_(ReadMessage, TEV_LOG_INFO);
  }
  ~Reader() {
    set_log_func_(nullptr, level_);
    reading = nullptr;
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

 private:
  decltype(&::set_log_func) set_log_func_;
  int level_;
};

}  // namespace

// The plug-in hashes the path with the same function, whose seed is constant.
bool ConfiguredScript::tag_configured() const {
  return tag != "dict_" + std::to_string(std::hash<std::string>{}(path));
}

std::vector<ConfiguredScript> Survey(const Plugin& plugin, const OptionList& options) {
  std::vector<ConfiguredScript> scripts;
  const Reader reader(plugin, &scripts);
  try {
    HostedProvider(plugin, options).Sources();
  } catch (const std::runtime_error&) {
    scripts.clear();
  }
  return scripts;
}

}  // namespace standin
