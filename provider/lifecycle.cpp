// The provider's life cycle: initialization, application ID, schema and finalization.

#include <algorithm>
#include <cstdlib>

#include "provider/catch_bad_alloc.h"
#include "provider/host_log.h"
#include "provider/provider.h"
#include "provider/python_lock.h"
#include "provider/rubruf_module.h"
#include "provider/script_config.h"
#include "provider/script_output.h"
#include "utils/log/log.h"
#include "utils/python_env/python_env.h"
#include "utils/python_env/python_runs.h"
#include "utils/strings/conversions.h"

namespace {

// Behind the interpreter's end, which may still print and log. An interpreter that is kept may have given its lock to
// threads of scripts. `python_ran` is false in a child of a fork, where nobody may be left to give the lock away.
void EndLog(bool python_ran) {
  const bool runs = python_ran && Py_IsInitialized() != 0;
  const PyGILState_STATE lock = runs ? PyGILState_Ensure() : PyGILState_UNLOCKED;
  script_output::Remove(runs);
  host_log::End();
  if (runs) PyGILState_Release(lock);
}

}  // namespace

bool PythonEventProvider::Initialize(tev_event_provider_t* provider, tev_type_system_t* type_system) {
  if (python_started) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] already initialized");
    return false;
  }
  if (tev_python_environment_init() != 0) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not start python environment");
    return false;
  }
  python_started = 1;
  host_log::Begin();
  rubruf_module::Install(this);
  if (log_output) script_output::Install();
  if (CatchBadAlloc(false, [=] { return SetUp(provider, type_system); })) {
    if (release_lock) PythonLock::BeginLife();
    return true;
  }
  TEV_LOG(TEV_LOG_ERROR, "[python provider] aborting initialization");
  Finalize(provider);
  return false;
}

bool PythonEventProvider::SetUp(tev_event_provider_t* provider, tev_type_system_t* type_system) {
  for (ScriptConfig* script : script_configs) {
    if (!script->Bind()) return false;
  }
  return SetAppID() && SetSchema(provider, type_system);
}

bool PythonEventProvider::SetAppID() {
  if (app_id_set) return true;
  bool no_invalid_text = true;
  for (ScriptConfig* script : script_configs) {
    const std::string text = script->GetStringFromScript("get_app_id");
    if (text.empty()) continue;
    if (string_to_guid(text.c_str(), app_id)) {
      app_id_set = 1;
      return true;
    }
    TEV_LOG(TEV_LOG_ERROR, "[python provider] ignoring invalid app ID (from %s)", script->script_path.c_str());
    std::fill(std::begin(app_id), std::end(app_id), uint8_t{0});
    if (!script->tolerant) no_invalid_text = false;
  }
  return no_invalid_text;
}

bool PythonEventProvider::SetSchema(tev_event_provider_t* provider, tev_type_system_t* type_system) {
  tev_schema_t* schema = tev_type_system_add_schema(type_system, provider->name, provider->schema_number, &schema_id);
  if (schema != nullptr) opaque_events = tev_opaque_events_create(schema);
  if (schema == nullptr || opaque_events == nullptr) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] could not create schema");
    return false;
  }
  return true;
}

void PythonEventProvider::Finalize(tev_event_provider_t* /*provider*/) {
  PythonLock::EndLife();
  if (opaque_events != nullptr) {
    tev_opaque_events_delete(opaque_events);
    opaque_events = nullptr;
  }
  key_index.Clear();
  for (const auto& [name, id] : key_ids) free(name);
  key_ids.clear();
  // A stuck walk may have left a pending error. It is cleared because destructors of the scripts' objects may run
  // Python code, which expects no pending error.
  if (python_started && PythonRuns()) PyErr_Clear();
  rubruf_module::Remove();
  DestroyScriptConfigs(script_configs);
  ResetWalk();
  if (python_started) {
    python_started = 0;
    const bool python_ran = PythonRuns();
    if (tev_python_environment_finalize() != 0) {
      TEV_LOG(TEV_LOG_ERROR, "[python provider] could not finalize python environment");
    }
    EndLog(python_ran);
  }
}
