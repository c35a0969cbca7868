// Fuzz target: the text of a .cfg file, against the rules of the format.

#include <sys/mman.h>
#include <unistd.h>

#include <sstream>

#include "config/cfg_file.h"
#include "fuzz/expect.h"
#include "fuzz/script_model.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

const std::string kDirectory = "/proc/self/fd";

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(fuzz::kBlanks);
  if (begin == std::string::npos) return "";
  const std::string trimmed = text.substr(begin, text.find_last_not_of(fuzz::kBlanks) - begin + 1);
  return trimmed.substr(0, trimmed.find('\0'));
}

// What the file sets, by keys.
std::map<std::string, std::string> Settings(const std::string& text) {
  std::map<std::string, std::string> settings{{"enable", "true"}};
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    const size_t equals = line.find('=');
    if (equals != std::string::npos) settings[Trimmed(line.substr(0, equals))] = Trimmed(line.substr(equals + 1));
  }
  return settings;
}

fuzz::Lines ExpectedLog(std::map<std::string, std::string> settings, const std::string& cfg_path) {
  // A key of the first script by its number serves where the plain one is absent, as among a host's options.
  const auto text = [&](const std::string& name) { return settings[settings.count(name) != 0 ? name : "1-" + name]; };
  fuzz::ScriptModel script{cfg_path + ".py", text("function"), text("force-sync"), text("tag")};
  if (const auto file = settings.find("file"); file != settings.end()) {
    const std::string& name = file->second;
    script.path = name.empty() ? kDirectory : name[0] == '/' ? name : kDirectory + "/" + name;
  }
  if (!script.tag.empty()) script.tag.insert(0, "dict_");
  for (const auto& [key, value] : settings) {
    if (key.compare(0, 4, "arg-") == 0) script.arguments[key.substr(4)] = value;
  }
  return script.Log(0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int file = memfd_create("cfg", 0);
  static const std::string path = kDirectory + "/" + std::to_string(file);
  Expect(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "the file");
  const std::string text(data, data + size);
  const auto settings = Settings(text);
  const bool enabled = fuzz::IsTrue(settings.at("enable"));

  for (const bool force : {false, true}) {
    std::vector<PythonEventProvider::ScriptConfig*> list;
    fuzz::TakeLog();
    const bool parsed = config_dir_parser::parseCfgFile(path, list, force);
    for (const auto* record : list) record->LogInstance();
    DestroyScriptConfigs(list);
    const fuzz::Lines log = fuzz::TakeLog();
    Expect(parsed, "a file is never refused");
    ExpectEqual(log, enabled || force ? ExpectedLog(settings, path) : fuzz::Lines(), "the log");
    if (enabled) break;  // force would change nothing
  }
  return 0;
}
