// Reading the script, and the keys of its options.

#include "soak/script.h"

#include <fstream>
#include <iterator>
#include <string>

namespace soak {

standin::PythonModule LoadScript(const standin::Plugin& plugin) {
  std::ifstream file(RUBRUF_SOURCE_DIR "/soak/results.py");
  const std::string source{std::istreambuf_iterator<char>(file), {}};
  // Under the name that the binding of the scripts imports, so that they are this module.
  return standin::PythonModule(plugin, "results", source.c_str());
}

standin::OptionList ScriptOptions(uint32_t count) {
  standin::OptionList options{{"enable-provider", "python"},
                              {"python-import-num-scripts", std::to_string(count)},
                              {"python-import-file", RUBRUF_SOURCE_DIR "/soak/results.py"},
                              {"python-import-arg-kept", "text"}};
  for (uint32_t index = 0; index < count; ++index) {
    const std::string number = std::to_string(index + 1);
    if (HasForceSync(index)) options.emplace_back("python-import-" + number + "-force-sync", "true");
    if (index % 2 == 1) options.emplace_back("python-import-" + number + "-tag", std::to_string(index));
  }
  return options;
}

}  // namespace soak
