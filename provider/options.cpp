// The provider-wide options, the choice between the three ways to configure scripts, and the configuration log.

#include <algorithm>
#include <cstdlib>

#include "provider/catch_bad_alloc.h"
#include "provider/option_keys.h"
#include "provider/provider.h"
#include "provider/script_config.h"
#include "utils/log/log.h"
#include "utils/strings/conversions.h"

namespace {

bool IsOn(const tev_custom_options* options, const char* key) {
  const char* text = tev_dict_get(options, key);
  return text != nullptr && string_to_boolean(text);
}

}  // namespace

bool PythonEventProvider::ReadOpts(const tev_custom_options* options) {
  if (const char* app_id_text = tev_dict_get(options, kAppIdOption); app_id_text != nullptr) {
    if (!string_to_guid(app_id_text, app_id)) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid app ID '%s'", app_id_text);
      std::fill(std::begin(app_id), std::end(app_id), uint8_t{0});
      return false;
    }
    app_id_set = 1;
  }
  if (const char* count_text = tev_dict_get(options, kNumScriptsOption); count_text != nullptr) {
    const auto count = static_cast<uint32_t>(strtol(count_text, nullptr, 10));
    if (count - 1 > kMaxScripts - 1) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] invalid value of '%s' - expected an integer in range [1, 256]",
              kNumScriptsOption);
      num_scripts = 1;
      return false;
    }
    num_scripts = static_cast<uint16_t>(count);
  }
  log_output = IsOn(options, kLogOutputOption);
  release_lock = IsOn(options, kReleaseLockOption);
  if (!CatchBadAlloc(false, [=] { return SetScriptConfigs(options); })) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not parse all scripts options");
    return false;
  }
  return true;
}

bool PythonEventProvider::SetScriptConfigs(const tev_custom_options* options) {
  if (const char* directory = tev_dict_get(options, kConfigDirOption); directory != nullptr) {
    return SetScriptConfigsFromDir(directory);
  }
  if (ProviderExplicitlyEnabled(options)) return SetScriptConfigsFromOpts(options);
  if (CatchBadAlloc(false, [=] { return AddVirtualProviders(options); })) return true;
  TEV_LOG(TEV_LOG_INFO, "[python provider] no virtual providers found");
  DestroyScriptConfigs(script_configs);
  return false;
}

size_t PythonEventProvider::CountServedScripts() const {
  return std::min({size_t{GetNumScripts()}, script_configs.size(), kMaxScripts});
}

const std::string& PythonEventProvider::GetTagName(unsigned char index) { return script_configs[index]->GetTagName(); }

void PythonEventProvider::LogConfiguration() const {
  TEV_LOG(TEV_LOG_INFO,
          "[python provider] App ID: "
          "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
          app_id[0], app_id[1], app_id[2], app_id[3], app_id[4], app_id[5], app_id[6], app_id[7], app_id[8], app_id[9],
          app_id[10], app_id[11], app_id[12], app_id[13], app_id[14], app_id[15]);
  TEV_LOG(TEV_LOG_INFO, "[python provider] Number of scripts: %u", unsigned{num_scripts});
  if (log_output) TEV_LOG(TEV_LOG_INFO, "[python provider] Log output: %s", boolean_to_string(log_output));
  if (release_lock) TEV_LOG(TEV_LOG_INFO, "[python provider] Release lock: %s", boolean_to_string(release_lock));
  for (const ScriptConfig* script : script_configs) script->LogInstance();
}
