// Fuzz target: the text of a .cfg file, against the format's rules.

#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <sstream>

#include "config/cfg_file.h"
#include "fuzz/expect.h"
#include "fuzz/script_model.h"

namespace {

const std::string kDirectory = "/proc/self/fd";

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

ScriptModel ModelOf(const std::string& text, const std::string& cfg_path, bool* enabled) {
  std::map<std::string, std::string> settings{{"enable", "true"}};
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    const size_t equals = line.find('=');
    if (equals != std::string::npos) settings[Trimmed(line.substr(0, equals))] = Trimmed(line.substr(equals + 1));
  }
  std::string path = cfg_path + ".py";
  if (const auto file = settings.find("file"); file != settings.end()) {
    const std::string& name = file->second;
    path = name.empty() ? kDirectory : name[0] == '/' ? name : kDirectory + "/" + name;
  }
  *enabled = IsTrue(settings["enable"]);
  const std::string tag = settings["tag"];
  ScriptModel script{0, path, settings["function"], settings["force-sync"], tag.empty() ? "" : "dict_" + tag};
  for (const auto& [key, value] : settings) {
    if (key.compare(0, 4, "arg-") == 0) script.arguments[key.substr(4)] = value;
  }
  return script;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int file = memfd_create("cfg", 0);
  static const std::string path = kDirectory + "/" + std::to_string(file);
  Expect(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "writing the file");
  const std::string text(data, data + size);
  bool enabled = false;
  const ScriptModel script = ModelOf(text, path, &enabled);

  for (const bool force : {false, true}) {
    std::vector<PythonEventProvider::ScriptConfig*> list;
    TakeLog();
    const bool parsed = config_dir_parser::parseCfgFile(path, list, force);
    for (const auto* record : list) record->LogInstance();
    DestroyScriptConfigs(list);
    // Zero characters have no place in a configuration; that they do no harm is enough.
    if (text.find('\0') != std::string::npos) continue;
    Expect(parsed, "parsing succeeds");
    ExpectEqual(Sorted(TakeLog()), enabled || force ? Sorted(script.Log()) : Lines(), "the log of the script");
  }
  return 0;
}
