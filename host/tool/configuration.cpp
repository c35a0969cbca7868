// Checks .cfg files line by line, and options key by key.

#include "host/tool/configuration.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>

#include "host/tool/nearest.h"
#include "provider/option_keys.h"

namespace standin {
namespace {

constexpr char kCollectionConfigs[] = "/config/collection_configs";
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr char kBlanks[] = " \t\n\v\f\r";

// Keys as .cfg files have them. The last one is a prefix: the name of an argument follows.
const std::string kFile = kFileOption + LengthOf(kOptionPrefix);
const std::string kForceSync = kForceSyncOption + LengthOf(kOptionPrefix);
const std::string kOwnModule = kOwnModuleOption + LengthOf(kOptionPrefix);
const std::string kTolerant = kTolerantOption + LengthOf(kOptionPrefix);
const std::string kLogOutput = kLogOutputOption + LengthOf(kOptionPrefix);
const std::string kReleaseLock = kReleaseLockOption + LengthOf(kOptionPrefix);
const std::string kEnable = kEnableOption + LengthOf(kOptionPrefix);
const std::string kArgument = kArgumentPrefix + LengthOf(kOptionPrefix);

std::vector<std::string> ScriptKeys() {
  return {kFile,
          kFunctionOption + LengthOf(kOptionPrefix),
          kTagOption + LengthOf(kOptionPrefix),
          kForceSync,
          kOwnModule,
          kTolerant,
          kArgument + "NAME"};
}

bool StartsWith(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

bool IsKnown(const std::string& key, const std::vector<std::string>& known) {
  return StartsWith(key, kArgument) || std::find(known.begin(), known.end(), key) != known.end();
}

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool IsTrue(const std::string& value) { return value == "1" || value == "true" || value == "True"; }

bool IsBoolean(const std::string& value) {
  return IsTrue(value) || value == "0" || value == "false" || value == "False";
}

bool IsSwitch(const std::string& key) {
  return key == kForceSync || key == kOwnModule || key == kTolerant || key == kLogOutput || key == kReleaseLock;
}

// Reads one .cfg file line by line.
class CfgReader {
 public:
  CfgReader(const std::string& path, Remarks* remarks) : file_{path}, remarks_(remarks) {}

  CfgFile Read() {
    errno = 0;
    std::ifstream lines(file_.path);
    if (!lines) throw std::runtime_error(file_.path + ": cannot be read: " + strerror(errno));
    for (std::string line; std::getline(lines, line);) {
      ++number_;
      ReadLine(line);
    }
    const bool names_script = !file_.Value(kFile).empty();
    if (!names_script) Set(kFile, file_.path.substr(0, file_.path.size() - strlen(".cfg")) + ".py");
    return std::move(file_);
  }

 private:
  void ReadLine(const std::string& line) {
    const bool marked = number_ == 1 && StartsWith(line, kByteOrderMark);
    if (marked) Warn("the byte-order mark is part of the line's key: save the file without it");
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      const std::string text = Trimmed(line);
      if (!marked && !text.empty() && text[0] != '#') Warn("without \"=\" the line is ignored: " + text);
      return;
    }
    const std::string key = Trimmed(line.substr(0, equals));
    const std::string value = Trimmed(line.substr(equals + 1));
    if (marked || (!key.empty() && key[0] == '#')) return;
    std::vector<std::string> known = ScriptKeys();
    known.push_back(kEnable);
    if (!IsKnown(key, known)) return Warn("the key " + key + " is unknown and ignored: " + Suggestion(key, known));
    if (value.find(" #") != std::string::npos || value.find("\t#") != std::string::npos) {
      Warn("the comment is part of the value: give it a line of its own, without \"=\"");
    }
    if (key == kEnable) ReadEnable(value);
    if (IsSwitch(key) && !IsBoolean(value)) Warn(key + " = " + value + " is no boolean, and off: give true or false");
    if (const auto [first, is_new] = lines_.emplace(key, number_); !is_new) {
      Warn(key + " is set again: line " + std::to_string(first->second) + " does not count");
    }
    Set(key, key == kFile ? Resolved(value) : value);
  }

  void ReadEnable(const std::string& value) {
    file_.enabled = IsTrue(value);
    if (!IsBoolean(value)) {
      Warn("enable = " + value + " is no boolean, and leaves the script out: give true or false");
    } else if (!file_.enabled) {
      remarks_->notes.push_back(Place() + "disabled: its script is not used");
    }
  }

  std::string Resolved(const std::string& value) const {
    const size_t slash = file_.path.rfind('/');
    if (StartsWith(value, "/") || slash == std::string::npos) return value;
    return file_.path.substr(0, slash + 1) + value;
  }

  void Set(const std::string& key, const std::string& value) {
    for (auto& [known, old] : file_.settings) {
      if (known == key) {
        old = value;
        return;
      }
    }
    file_.settings.emplace_back(key, value);
  }

  std::string Place() const { return file_.path + ":" + std::to_string(number_) + ": "; }
  void Warn(const std::string& text) { remarks_->warnings.push_back(Place() + text); }

  CfgFile file_;
  Remarks* remarks_;
  size_t number_ = 0;
  std::map<std::string, size_t> lines_;  // line numbers of the keys
};

void AddFile(const std::string& path, std::vector<CfgFile>* files, Remarks* remarks) {
  try {
    files->push_back(ReadCfgFile(path, remarks));
  } catch (const std::runtime_error& error) {
    remarks->errors.emplace_back(error.what());
  }
}

std::vector<CfgFile> VirtualProviders(const std::string& names, Remarks* remarks) {
  std::vector<CfgFile> files;
  for (size_t begin = 0; begin <= names.size();) {
    const size_t end = std::min(names.find(',', begin), names.size());
    const std::string path = std::string(kCollectionConfigs) + "/" + names.substr(begin, end - begin) + ".cfg";
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      AddFile(path, &files, remarks);
    } else {
      remarks->notes.push_back("enable-provider: there is no file " + path);
    }
    begin = end + 1;
  }
  for (CfgFile& file : files) file.enabled = true;
  return files;
}

// Checks the options that describe scripts, or that are given together with .cfg files.
class OptionsReader {
 public:
  OptionsReader(const std::map<std::string, std::string>& options, Remarks* remarks)
      : options_(options), remarks_(remarks) {}

  void Read() {
    for (const auto& [key, value] : options_) ReadOption(key, value);
  }

  void RequireFiles() {
    if (options_.count(kFileOption) > 0) return;
    const unsigned long scripts = Scripts();
    for (unsigned long i = 1; i <= std::min<unsigned long>(scripts, kMaxScripts); ++i) {
      const std::string key = kOptionPrefix + std::to_string(i) + "-" + kFile;
      if (options_.count(key) == 0) remarks_->errors.push_back("script " + std::to_string(i) + " has no option " + key);
    }
  }

 private:
  unsigned long Scripts() const {
    const auto found = options_.find(kNumScriptsOption);
    return found == options_.end() ? 1 : std::strtoul(found->second.c_str(), nullptr, 10);
  }

  void ReadOption(const std::string& key, const std::string& value) {
    std::vector<std::string> known = ScriptKeys();
    std::string name = key;
    if (StartsWith(key, kOptionPrefix)) {
      name = key.substr(LengthOf(kOptionPrefix));
      const size_t digits = name.find_first_not_of("0123456789");
      if (digits != 0 && digits != std::string::npos && name[digits] == '-') {
        if (std::stoul("0" + name.substr(0, std::min<size_t>(digits, 9))) > Scripts()) {
          remarks_->warnings.push_back("option " + key + ": there is no script of this number");
        }
        const std::string number = name.substr(0, digits + 1);
        name = name.substr(digits + 1);
        if (StartsWith(name, kArgument)) {
          const std::string meant = kArgumentPrefix + number + name.substr(kArgument.size());
          remarks_->warnings.push_back("option " + key + ": unknown and ignored: did you mean " + meant + "?");
          return;
        }
      }
      if (IsKnown(name, known)) return CheckValue(key, name, value);
    }
    CheckValue(key, name, value);
    for (std::string& script_key : known) script_key.insert(0, kOptionPrefix);
    known.insert(known.end(), {kAppIdOption, kNumScriptsOption, kConfigDirOption, kLogOutputOption, kReleaseLockOption,
                               kEnableProviderOption, kDisableProviderOption});
    if (IsKnown(key, known)) return;
    remarks_->warnings.push_back("option " + key + ": unknown and ignored: " + Suggestion(key, known));
  }

  void CheckValue(const std::string& key, const std::string& name, const std::string& value) {
    if (!IsSwitch(name) || IsBoolean(value)) return;
    remarks_->warnings.push_back("option " + key + ": " + value + " is no boolean, and off: give true or false");
  }

  const std::map<std::string, std::string>& options_;
  Remarks* remarks_;
};

struct CloseDir {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::string CfgFile::Value(const std::string& key) const {
  for (const auto& [known, value] : settings) {
    if (known == key) return value;
  }
  return "";
}

CfgFile ReadCfgFile(const std::string& path, Remarks* remarks) { return CfgReader(path, remarks).Read(); }

std::vector<CfgFile> ReadCfgDirectory(const std::string& directory, Remarks* remarks) {
  std::vector<CfgFile> files;
  const std::unique_ptr<DIR, CloseDir> listing(opendir(directory.c_str()));
  if (!listing) {
    remarks->errors.push_back(directory + ": cannot be read: " + strerror(errno));
    return files;
  }
  while (const dirent* entry = readdir(listing.get())) {
    const std::string name = entry->d_name;
    if (name[0] == '.') continue;
    std::string path = directory;
    if (path.back() != '/') path += '/';
    path += name;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
      const bool dangles = lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
      remarks->errors.push_back(path + (dangles ? ": the link leads nowhere" : ": cannot be looked at") +
                                ", and the whole directory is refused for it");
      continue;
    }
    const bool is_cfg = name.size() >= 4 && name.compare(name.size() - 4, 4, ".cfg") == 0;
    if (S_ISREG(status.st_mode) && is_cfg) AddFile(path, &files, remarks);
  }
  return files;
}

std::vector<CfgFile> ReadConfiguration(const OptionList& options, Remarks* remarks) {
  std::map<std::string, std::string> values;
  for (const auto& [key, value] : options) values[key] = value;
  OptionsReader reader(values, remarks);
  reader.Read();
  std::vector<CfgFile> files;
  if (const auto directory = values.find(kConfigDirOption); directory != values.end()) {
    files = ReadCfgDirectory(directory->second, remarks);
  } else if (const auto names = values.find(kEnableProviderOption);
             names != values.end() && names->second.find(kProviderName) == std::string::npos) {
    files = VirtualProviders(names->second, remarks);
  } else {
    reader.RequireFiles();
  }
  files.erase(std::remove_if(files.begin(), files.end(), [](const CfgFile& file) { return !file.enabled; }),
              files.end());
  return files;
}

}  // namespace standin
