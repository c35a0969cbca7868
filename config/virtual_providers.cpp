// Virtual providers: each name in "enable-provider" that has a `.cfg` file in a fixed directory becomes one script.

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cstring>

#include "config/cfg_file.h"
#include "provider/option_keys.h"
#include "provider/provider.h"
#include "provider/script_config.h"
#include "utils/log/log.h"

namespace fs = boost::filesystem;

namespace {

constexpr char kCollectionConfigs[] = "/config/collection_configs";

// The status of the file at `path`, symbolic links followed. If the query fails for another reason than a missing file,
// `reason` tells it. A name that is too long counts as a missing file, because no file can have it.
fs::file_status StatusOf(const fs::path& path, std::string& reason) {
  boost::system::error_code error;
  fs::file_status status = fs::status(path, error);
  if (status.type() == fs::status_error && error != boost::system::errc::filename_too_long) reason = error.message();
  return status;
}

}  // namespace

bool PythonEventProvider::ProviderExplicitlyEnabled(const tev_custom_options* options) const {
  const char* enabled = tev_dict_get(options, kEnableProviderOption);
  return enabled != nullptr && strstr(enabled, kProviderName) != nullptr;
}

// False if the options enable no virtual provider, and, after an error message, if one of them fails. The caller then
// destroys the records that were made so far.
bool PythonEventProvider::AddVirtualProviders(const tev_custom_options* options) {
  TEV_LOG(TEV_LOG_DEBUG, "[python provider] Adding virtual providers");
  fs::path directory(kCollectionConfigs);
  std::string reason;
  if (!fs::is_directory(StatusOf(directory, reason))) {
    if (!reason.empty()) {
      TEV_LOG(TEV_LOG_DEBUG, "[python provider] Could not get the status of %s: %s", directory.c_str(), reason.c_str());
    }
    TEV_LOG(TEV_LOG_DEBUG, "[python provider] Did not find default configuration directory (%s)", directory.c_str());
    return false;
  }
  std::vector<std::string> enabled;
  SetProviderVector(options, enabled, kEnableProviderOption);
  if (enabled.empty()) return false;
  std::vector<std::string> disabled;
  SetProviderVector(options, disabled, kDisableProviderOption);
  for (std::string& name : enabled) {
    if (!AddVirtualProvider(name, directory, disabled)) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not add virtual provider %s", name.c_str());
      return false;
    }
  }
  if (script_configs.empty()) return false;
  num_scripts = static_cast<uint16_t>(script_configs.size());
  return true;
}

// Fills `list` with the items of a comma-separated option. Items are not trimmed, and empty items are kept.
void PythonEventProvider::SetProviderVector(
    const tev_custom_options* options, std::vector<std::string>& list,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the member's signature is fixed
    std::string key) const {
  const char* value = tev_dict_get(options, key.c_str());
  if (value != nullptr) boost::algorithm::split(list, std::string(value), boost::algorithm::is_any_of(","));
}

// Adds the script of the enabled name `name`, if there is a file for it. The file's "enable" line is ignored. The items
// of `disabled` that begin with the name become the script's argument "disabled".
bool PythonEventProvider::AddVirtualProvider(std::string& name, fs::path& directory,
                                             std::vector<std::string>& disabled) {
  const std::string path = directory.string() + "/" + name + ".cfg";
  std::string reason;
  const fs::file_status status = StatusOf(path, reason);
  if (!reason.empty()) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not get the status of %s: %s", path.c_str(), reason.c_str());
    return false;
  }
  if (!fs::is_regular_file(status)) return true;
  if (!config_dir_parser::parseCfgFile(path, script_configs, true)) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] Could not add '%s' provider", name.c_str());
    return false;
  }
  TEV_LOG(TEV_LOG_INFO, "[python provider] Added provider %s", name.c_str());
  std::vector<std::string> own_items;
  for (const std::string& item : disabled) {
    if (boost::algorithm::starts_with(item, name)) own_items.push_back(item);
  }
  if (own_items.empty()) return true;
  return script_configs.back()->AddDictPair("disabled", boost::algorithm::join(own_items, ",").c_str());
}
