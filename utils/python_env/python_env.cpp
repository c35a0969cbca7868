// Counts the users of the interpreter, and imports scripts.

#include "utils/python_env/python_env.h"

#include <unistd.h>

#include <cstdlib>

#include "utils/log/log.h"
#include "utils/python_env/import_path.h"
#include "utils/python_env/interpreter.h"
#include "utils/python_env/life.h"
#include "utils/python_env/python.h"
#include "utils/python_env/python_runs.h"

namespace {

struct PythonEnvironment {
  uint32_t users;
  pid_t process;             // the process in which this life began; a forked child has another ID
  bool interpreter_is_ours;  // started by this library, in this life or an earlier one: we stop it
  bool joined;               // the interpreter was kept by an earlier life
  PyGILState_STATE lock;     // if joined
};

PythonEnvironment* python_environment = nullptr;

// Undoes a failed start.
int32_t GiveUp() {
  free(python_environment);
  python_environment = nullptr;
  return -1;
}

}  // namespace

bool PythonRuns() {
  return python_environment != nullptr && python_environment->process == getpid() && Py_IsInitialized() != 0;
}

bool InterpreterIsOurs() { return python_environment != nullptr && python_environment->interpreter_is_ours; }

int32_t tev_python_environment_init(void) {
  if (python_environment != nullptr) {
    ++python_environment->users;
    return 0;
  }
  if (!IsPythonOfThisBuild()) return -1;
  const bool runs_already = Py_IsInitialized() != 0;
  const bool joins = runs_already && InterpreterIsKept();
  if (runs_already && !joins && PyGILState_Check() == 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] an interpreter runs, and this thread does not hold its lock");
    return -1;
  }
  python_environment = static_cast<PythonEnvironment*>(calloc(1, sizeof(PythonEnvironment)));
  if (python_environment == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] could not create python environment");
    return -1;
  }
  if (!OfferLibpython()) return GiveUp();
  if (!runs_already) StartInterpreter();
  if (const int initialized = Py_IsInitialized(); initialized == 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Py_IsInitialized returned %d", initialized);
    return GiveUp();
  }
  python_environment->users = 1;
  python_environment->process = getpid();
  python_environment->interpreter_is_ours = !runs_already || joins;
  python_environment->joined = joins;
  if (joins) python_environment->lock = JoinInterpreter();
  return 0;
}

int tev_python_environment_is_set(void) { return python_environment != nullptr ? 1 : 0; }

void tev_python_environment_print_error(void) {
  if (python_environment == nullptr) return;
  PyErr_Print();
  PyErr_Clear();
}

PyObject* tev_python_environment_get_module(const char* python_file) {
  if (python_environment == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Python environment was not initialized");
    return nullptr;
  }
  if (python_file == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] python_file is NULL");
    return nullptr;
  }
  const MallocText module_name = EnterDirectory(python_file);
  if (!module_name) return nullptr;
  const OwnedRef name(PyUnicode_DecodeFSDefault(module_name.get()));
  PyObject* module = name ? PyImport_Import(name.get()) : nullptr;
  if (module == nullptr) ReportFailedImport(module_name.get());
  NoteImport(python_file);
  return module;
}

int32_t tev_python_environment_finalize(void) {
  if (python_environment == nullptr) return 0;
  if (--python_environment->users != 0) return 0;
  const PythonEnvironment ended = *python_environment;
  const bool runs = PythonRuns();
  free(python_environment);
  python_environment = nullptr;
  // A forked child does not stop the interpreter, which would wait for threads that exist only in the parent.
  if (!runs) return 0;
  if (!ended.interpreter_is_ours) return FlushStreams();
  return StopInterpreter(ended.joined ? &ended.lock : nullptr);
}
