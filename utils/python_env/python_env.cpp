// The users of the interpreter; importing a script.

#include "utils/python_env/python_env.h"

#include <cstdlib>

#include "utils/log/log.h"
#include "utils/python_env/import_path.h"
#include "utils/python_env/interpreter.h"
#include "utils/python_env/python.h"

namespace {

struct PythonEnvironment {
  uint32_t users;
  bool interpreter_is_ours;  // started here, and so to be stopped here
};

PythonEnvironment* python_environment = nullptr;

}  // namespace

int32_t tev_python_environment_init(void) {
  if (python_environment != nullptr) {
    ++python_environment->users;
    return 0;
  }
  if (!IsPythonOfThisBuild()) return -1;
  const bool runs_already = Py_IsInitialized() != 0;
  if (runs_already && PyGILState_Check() == 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] an interpreter runs, and this thread does not hold its lock");
    return -1;
  }
  python_environment = static_cast<PythonEnvironment*>(calloc(1, sizeof(PythonEnvironment)));
  if (python_environment == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] could not create python environment");
    return -1;
  }
  PromoteLibpython();
  if (!runs_already) StartInterpreter();
  if (const int initialized = Py_IsInitialized(); initialized == 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Py_IsInitialized returned %d", initialized);
    free(python_environment);
    python_environment = nullptr;
    return -1;
  }
  python_environment->users = 1;
  python_environment->interpreter_is_ours = !runs_already || TakeBackInterpreter();
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
  PyObject* module = PyImport_ImportModule(module_name.get());
  if (module == nullptr) ReportFailedImport(module_name.get());
  return module;
}

int32_t tev_python_environment_finalize(void) {
  if (python_environment == nullptr) return 0;
  if (--python_environment->users != 0) return 0;
  const bool interpreter_is_ours = python_environment->interpreter_is_ours;
  free(python_environment);
  python_environment = nullptr;
  if (!interpreter_is_ours || Py_IsInitialized() == 0) return 0;
  return StopInterpreter();
}
