// PythonEventProvider: the one object behind the plug-in's descriptor.
//
// It is constructed by the first call of the plug-in's entry and destroyed when the library is unloaded. In between it
// has one or more lives. A *life* begins when initialize starts the interpreter and binds the scripts that were read
// from the options, and ends with finalize, which releases everything. Each progress call runs or resumes one
// collection: it calls a script's function and *walks* the result, writing it token by token. A walk is *stuck* if it
// has met a value that it cannot write; only finalize ends it.
//
// The object is used on one thread, and holds at most one walk.

#ifndef RUBRUF_PROVIDER_PROVIDER_H_
#define RUBRUF_PROVIDER_PROVIDER_H_

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/tev_host.h"
#include "provider/key_index.h"
#include "provider/script_stats.h"
#include "provider/tokens.h"
#include "provider/tolerance.h"
#include "provider/walk_state.h"
#include "utils/dict/dict.h"
#include "utils/python_env/python.h"

namespace boost::filesystem {
class path;
}  // namespace boost::filesystem

// Orders texts byte by byte.
struct sort_str {
  bool operator()(const char* first, const char* second) const { return strcmp(first, second) < 0; }
};

class PythonEventProvider {
 public:
  class ScriptConfig;  // provider/script_config.h

  PythonEventProvider() = default;
  // Runs when the library is unloaded or the process exits. It releases no Python object: Finalize does that, and the
  // interpreter may be gone by now.
  ~PythonEventProvider() { AbandonWalk(); }
  PythonEventProvider(const PythonEventProvider&) = delete;
  PythonEventProvider& operator=(const PythonEventProvider&) = delete;

  // Reads the provider's options and adds the scripts that they configure. False after an error message.
  bool ReadOpts(const tev_custom_options* options);

  // Starts the interpreter, binds the scripts, settles the application ID and opens the writer. False after an error
  // message; everything that was started is then finalised.
  bool Initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);

  // Releases the scripts and everything that initialization and collections made. A second call does nothing.
  void Finalize(tev_event_provider_t* provider);

  // Resumes the walk that a refused token interrupted, whatever script it belongs to; without one, begins a collection
  // of the script at `index`. Returns the status for the host (TEV_PROGRESS_*).
  tev_progress_status_t Progress(tev_data_serializer_t* serializer, unsigned char index);

  // The number of configured scripts. It survives Finalize, so there may be fewer records.
  uint16_t GetNumScripts() const { return num_scripts; }
  // The number of scripts that the host can address: the configured ones that have a record.
  size_t CountServedScripts() const;
  // The tag of the script at `index`, which must be the index of a record. May call the script's "get_tag".
  const std::string& GetTagName(unsigned char index);

  // Writes the configuration to the log, at info level.
  void LogConfiguration() const;

  // What `rubruf.stats()` returns (rubruf_module.cpp): a new reference, or null with a Python error.
  PyObject* Stats() const;

 private:
  // Options (options.cpp, script_options.cpp, config/).
  bool SetScriptConfigs(const tev_custom_options* options);
  bool SetScriptConfigsFromOpts(const tev_custom_options* options);
  bool AddScriptConfigs(const tev_custom_options* options);
  static bool AddScriptConfigDictPairClb(const char* key, const char* value, void* provider);
  bool AddToScriptConfigDict(unsigned char index, const char* key, const char* value);
  bool SetScriptConfigsFromDir(const std::string& directory);
  bool ProviderExplicitlyEnabled(const tev_custom_options* options) const;
  bool AddVirtualProviders(const tev_custom_options* options);
  void SetProviderVector(const tev_custom_options* options, std::vector<std::string>& list, std::string key) const;
  bool AddVirtualProvider(std::string& name, boost::filesystem::path& directory, std::vector<std::string>& disabled);

  // Life cycle (lifecycle.cpp).
  bool SetUp(tev_event_provider_t* provider, tev_type_system_t* type_system);
  bool SetAppID();
  bool SetSchema(tev_event_provider_t* provider, tev_type_system_t* type_system);

  // The walk of a result (walker.cpp). `status` receives the status of the last token.
  tev_progress_status_t Walk(tev_data_serializer_t* serializer, unsigned char index);
  bool DoCollection(unsigned char index);
  bool IsEmpty(PyObject* object) const;
  bool SetIterable(tev_progress_status_t* status, tev_data_serializer_t* serializer);
  // False: nothing is left to walk. True: look at `status`. TEV_PROGRESS_DONE means that a scalar is current and is to
  // be written; any other status means that a token was not written, and is the result of the progress call.
  bool SetCurrent(tev_progress_status_t* status, tev_data_serializer_t* serializer);
  bool OnNewIterable(PyObject* object, uint32_t key_id, tev_progress_status_t* status,
                     tev_data_serializer_t* serializer);
  bool OnEndIterable(tev_progress_status_t* status, tev_data_serializer_t* serializer, python_event_type_t type);
  enum class Step {
    kReturn,     // a scalar is current, or a token was not written: SetCurrent returns true
    kOpened,     // a nested list or dictionary was opened: the walk goes on inside it
    kLeftOut,    // an entry or item of a tolerant script was left out: the walk goes on behind it
    kExhausted,  // the open list or dictionary has nothing left
    kAbandoned,  // a list in a list: the walk ends as if it were complete
  };
  Step FetchEntry(Py_ssize_t* end);
  Step NextEntry(tev_progress_status_t* status, tev_data_serializer_t* serializer);
  Step NextItem(tev_progress_status_t* status, tev_data_serializer_t* serializer);
  bool IsOpen(PyObject* iterable) const;
  tev_progress_status_t WriteValue(tev_data_serializer_t* serializer);
  void ResetWalk();
  void AbandonWalk();

  // What the walk of a tolerant script's result leaves out (tolerance.cpp).
  Obstacle ValueObstacle(PyObject* value, bool in_list) const;
  bool LeavesOut(PyObject* key, PyObject* value);
  std::string PlaceOf(PyObject* key) const;

  // The number of the dictionary key `key` (key_names.cpp).
  uint32_t GetKeyID(PyObject* key);

  // The tokens (tokens.cpp). Each returns TEV_PROGRESS_DONE or TEV_PROGRESS_REFUSED, as the writer answered, or
  // TEV_PROGRESS_ERROR after an error message if the token cannot be formed.
  tev_progress_status_t WriteEvent(tev_data_serializer_t* serializer, uint32_t key_id, python_event_type_t type,
                                   uint32_t size, const void* data);
  tev_progress_status_t WriteText(tev_data_serializer_t* serializer, python_event_type_t type, const char* text,
                                  Py_ssize_t size);
  tev_progress_status_t OnKeyID(tev_data_serializer_t* serializer);
  tev_progress_status_t OnString(tev_data_serializer_t* serializer);
  tev_progress_status_t OnLong(tev_data_serializer_t* serializer);
  tev_progress_status_t OnDouble(tev_data_serializer_t* serializer);
  tev_progress_status_t OnBool(tev_data_serializer_t* serializer);
  tev_progress_status_t OnDataMarker(python_event_type_t type, uint32_t key_id, tev_data_serializer_t* serializer);
  tev_progress_status_t OnNewCollection(tev_data_serializer_t* serializer);

  std::vector<ScriptConfig*> script_configs;    // owned; deleted by Finalize or by a configuration that failed
  PyObject* collection_result = nullptr;        // owned; the result that is walked
  PyObject* current_iterable = nullptr;         // borrowed; during a walk, the iterable at the top of the stack
  std::map<char*, uint32_t, sort_str> key_ids;  // the keys are owned copies, freed by Finalize
  std::vector<iterable_position_t> iterable_stack;
  CurrentPythonData current_item;
  tev_opaque_events_t* opaque_events = nullptr;  // the host's writer, deleted by Finalize
  uint8_t app_id[16] = {};
  uint8_t schema_id = 0;
  uint16_t num_scripts = 1;
  uint32_t next_key_id = 0;  // only grows, so that no number ever stands for two texts
  uint8_t collection_in_progress = 0;
  uint8_t app_id_set = 0;
  uint8_t python_started = 0;
  // Options of the next life; see script_output.h and python_lock.h.
  bool log_output = false;
  bool release_lock = false;
  KeyIndex key_index;           // finds in `key_ids`
  std::string collection_path;  // of the script that returned `collection_result`
  // The figures of the script whose collection is the current or last one; the record may end before its walk does.
  std::shared_ptr<ScriptStats> collection_stats;
  Tolerance tolerance;          // of that collection
  uint64_t tokens_written = 0;  // that are not in the figures yet
};

#endif  // RUBRUF_PROVIDER_PROVIDER_H_
