// The scan of the configuration directory.

#include "config/config_dir.h"

#include <dirent.h>
#include <sys/stat.h>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <memory>

#include "config/cfg_file.h"
#include "provider/catch_bad_alloc.h"
#include "utils/log/log.h"

namespace {

struct CloseDir {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDir>;

bool ParseEntry(const boost::filesystem::path& path, std::vector<PythonEventProvider::ScriptConfig*>& list) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] stat error");
    return false;
  }
  // The extension is compared as text. Boost's comparison of paths is noexcept but allocates: if memory ran out in it,
  // the process would end.
  if (!S_ISREG(status.st_mode) || !boost::algorithm::ends_with(path.native(), ".cfg")) return true;
  return config_dir_parser::parseCfgFile(path.string(), list, false);
}

// False after the first entry that fails, and if the listing cannot be read to its end.
bool ParseEntries(DIR* listing, const boost::filesystem::path& directory,
                  std::vector<PythonEventProvider::ScriptConfig*>& list) {
  errno = 0;
  while (const dirent* entry = readdir(listing)) {
    const bool hidden = entry->d_name[0] == '\0' || entry->d_name[0] == '.';
    if (!hidden && !ParseEntry(directory / entry->d_name, list)) return false;
    errno = 0;  // only errno tells an error of readdir from the end (POSIX)
  }
  return errno == 0;
}

}  // namespace

bool config_dir_parser::parseDir(const std::string& directory, std::vector<PythonEventProvider::ScriptConfig*>& list) {
  const Directory listing(opendir(directory.c_str()));
  if (!listing) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not open directory %s", directory.c_str());
    return false;
  }
  if (!CatchBadAlloc(false, [&] { return ParseEntries(listing.get(), directory, list); })) {
    DestroyScriptConfigs(list);
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Failed to read config directory %s", directory.c_str());
    return false;
  }
  return true;
}

bool PythonEventProvider::SetScriptConfigsFromDir(const std::string& directory) {
  if (!config_dir_parser::parseDir(directory, script_configs)) return false;
  num_scripts = static_cast<uint16_t>(script_configs.size());
  if (num_scripts != 0) return true;
  TEV_LOG(TEV_LOG_WARNING, "[python provider] no files found/all scripts are disabled in configuration directory %s",
          directory.c_str());
  return false;
}
