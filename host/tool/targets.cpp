// Reads targets and translates them into options of the plug-in.

#include "host/tool/targets.h"

#include <filesystem>

#include "provider/option_keys.h"

namespace standin {
namespace {

const std::string kArgument = kArgumentPrefix + LengthOf(kOptionPrefix);

// A file that the user names is used even if it is disabled.
CfgFile NamedFile(const std::string& path, Remarks* remarks, std::vector<std::string>* told) {
  Remarks found;
  CfgFile file = ReadCfgFile(path, &found);
  remarks->warnings.insert(remarks->warnings.end(), found.warnings.begin(), found.warnings.end());
  told->push_back(file.Value("file") + " is configured by " + path +
                  (file.enabled ? "" : ", which is disabled for a host"));
  return file;
}

}  // namespace

Script FromFile(const CfgFile& file) {
  Script script;
  for (const auto& [key, value] : file.settings) {
    if (key.compare(0, kArgument.size(), kArgument) == 0) {
      script.arguments.emplace_back(key.substr(kArgument.size()), value);
    } else if (key != kEnableOption + LengthOf(kOptionPrefix)) {
      script.settings.emplace_back(key, value);
    }
  }
  return script;
}

OptionList ScriptOptions(const std::vector<Script>& scripts) {
  OptionList options;
  if (scripts.empty()) return options;
  options.emplace_back(kEnableProviderOption, kProviderName);
  if (scripts.size() > 1) options.emplace_back(kNumScriptsOption, std::to_string(scripts.size()));
  for (size_t i = 0; i < scripts.size(); ++i) {
    const std::string number = scripts.size() > 1 ? std::to_string(i + 1) + "-" : "";
    const std::string setting = kOptionPrefix + number;
    const std::string argument = kArgumentPrefix + number;
    for (const auto& [key, value] : scripts[i].settings) options.emplace_back(setting + key, value);
    for (const auto& [key, value] : scripts[i].arguments) options.emplace_back(argument + key, value);
  }
  return options;
}

std::vector<CfgFile> ReadTargets(const std::vector<std::string>& targets, Remarks* remarks,
                                 std::vector<std::string>* told) {
  std::vector<CfgFile> files;
  for (const std::string& target : targets) {
    const std::filesystem::path path(target);
    if (std::filesystem::is_directory(path)) {
      for (CfgFile& file : ReadCfgDirectory(target, remarks)) {
        if (file.enabled) files.push_back(std::move(file));
      }
    } else if (path.extension() == ".cfg") {
      files.push_back(NamedFile(target, remarks, told));
    } else if (const auto beside = std::filesystem::path(path).replace_extension(".cfg");
               std::filesystem::exists(beside)) {
      files.push_back(NamedFile(beside, remarks, told));
    } else {
      files.push_back({target, true, {{"file", target}}});
    }
  }
  return files;
}

}  // namespace standin
