// The parser of `.cfg` files.

#include "config/cfg_file.h"

#include <boost/algorithm/string/trim.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "provider/catch_bad_alloc.h"
#include "provider/option_keys.h"
#include "utils/dict/owned_dict.h"
#include "utils/log/log.h"
#include "utils/strings/conversions.h"

namespace {

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Reads a file line by line into one buffer.
class LineReader {
 public:
  explicit LineReader(FILE* file) : file_(file) {}
  ~LineReader() { free(buffer_); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // False at the end of the file and after a read error. Throws std::bad_alloc.
  bool Next(std::string& line) {
    errno = 0;
    ssize_t length = getline(&buffer_, &capacity_, file_);
    if (length < 0) {
      if (errno == ENOMEM) throw std::bad_alloc();
      return false;
    }
    if (length > 0 && buffer_[length - 1] == '\n') --length;
    line.assign(buffer_, static_cast<size_t>(length));
    return true;
  }

 private:
  FILE* file_;
  char* buffer_ = nullptr;
  size_t capacity_ = 0;
};

// `text` without white space at its ends. It ends at the first zero character, because the dictionary holds C strings.
std::string Trimmed(const std::string& text) {
  const std::string trimmed = boost::algorithm::trim_copy(text);
  return trimmed.substr(0, trimmed.find('\0'));
}

bool ReadLines(FILE* file, tev_custom_options* dictionary, const std::string& path) {
  LineReader reader(file);
  for (std::string line; reader.Next(line);) {
    if (!config_dir_parser::addLineToTevDict(line, dictionary, path)) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not read %s properly", path.c_str());
      return false;
    }
  }
  return true;
}

bool AppendScript(const tev_custom_options* dictionary, std::vector<PythonEventProvider::ScriptConfig*>& list) {
  if (list.size() >= kMaxScripts) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Too much scripts enabled");
    return false;
  }
  auto script =
      std::make_unique<PythonEventProvider::ScriptConfig>(dictionary, static_cast<unsigned char>(list.size()));
  if (!script->IsSet()) return false;
  list.push_back(nullptr);
  list.back() = script.release();
  return true;
}

bool ParseOpenFile(FILE* file, const std::string& path, std::vector<PythonEventProvider::ScriptConfig*>& list,
                   bool force) {
  const OwnedDict dictionary(tev_dict_create());
  if (!dictionary) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not create tev_dict_t");
    return false;
  }
  if (!ReadLines(file, dictionary.get(), path)) return false;
  if (!config_dir_parser::resolveFileName(dictionary.get(), path)) return false;
  if (!force && !config_dir_parser::isEnabled(dictionary.get())) return true;
  return AppendScript(dictionary.get(), list);
}

}  // namespace

namespace config_dir_parser {

bool parseCfgFile(const std::string& path, std::vector<PythonEventProvider::ScriptConfig*>& list, bool force) {
  const File file(fopen(path.c_str(), "re"));
  if (!file) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not open file %s", path.c_str());
    return false;
  }
  return CatchBadAlloc(false, [&] { return ParseOpenFile(file.get(), path, list, force); });
}

bool addLineToTevDict(const std::string& line, tev_custom_options* dictionary, const std::string& path) {
  const size_t separator = line.find('=');
  if (separator == std::string::npos) {
    const std::string text = Trimmed(line);
    if (!text.empty() && text[0] != '#') {
      TEV_LOG(TEV_LOG_DEBUG, "[python provider] ignoring line without '=' in %s", path.c_str());
    }
    return true;
  }
  const std::string key = kOptionPrefix + Trimmed(line.substr(0, separator));
  const std::string value = Trimmed(line.substr(separator + 1));
  if (key == kFileOption) return addFileName(value, dictionary, path);
  return tev_dict_add(dictionary, key.c_str(), value.c_str());
}

bool addFileName(const std::string& value, tev_custom_options* dictionary, const std::string& path) {
  if (!value.empty() && value[0] == '/') return tev_dict_add(dictionary, kFileOption, value.c_str());
  boost::filesystem::path script_path(path);
  script_path.remove_filename();
  script_path /= value;
  return tev_dict_add(dictionary, kFileOption, script_path.c_str());
}

bool resolveFileName(tev_custom_options* dictionary, const std::string& path) {
  if (tev_dict_get(dictionary, kFileOption) != nullptr) return true;
  // The extension is replaced in the text. Boost's function for it compares paths, and that comparison is noexcept but
  // allocates: if memory ran out in it, the process would end.
  const size_t dot = path.rfind('.');
  const bool has_extension = dot != std::string::npos && path.find('/', dot) == std::string::npos;
  return tev_dict_add(dictionary, kFileOption, (path.substr(0, has_extension ? dot : path.size()) + ".py").c_str());
}

bool isEnabled(const tev_custom_options* dictionary) {
  const char* value = tev_dict_get(dictionary, kEnableOption);
  return value == nullptr || string_to_boolean(value);
}

}  // namespace config_dir_parser
