// The users of the interpreter; importing a script.

#include "utils/python_env/python_env.h"

#include <libgen.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "utils/log/log.h"
#include "utils/python_env/interpreter.h"
#include "utils/python_env/owned_ref.h"

namespace {

struct PythonEnvironment {
  uint32_t users;
  bool interpreter_is_ours;  // started here, and so to be stopped here
};

PythonEnvironment* python_environment = nullptr;

struct Free {
  void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, Free>;

// The statement that appends `directory` to sys.path, quoted by the interpreter itself so that no character of it can
// end the literal. Null when memory runs out.
Text AppendPathStatement(const char* directory) {
  OwnedRef path(PyUnicode_DecodeFSDefault(directory));
  if (!path) return nullptr;
  OwnedRef literal(PyObject_Repr(path.get()));
  if (!literal) return nullptr;
  const char* literal_text = PyUnicode_AsUTF8(literal.get());
  char* statement = nullptr;
  if (literal_text == nullptr || asprintf(&statement, "import sys; sys.path.append(%s)", literal_text) < 0) {
    return nullptr;
  }
  return Text(statement);
}

// Whether a file name, a path's last component, is that of a Python file: something before ".py".
bool IsPythonFile(const char* file_name) {
  const size_t length = strlen(file_name);
  return length > 3 && strcmp(file_name + length - 3, ".py") == 0;
}

void LogAllocationError() { TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Memory allocation error"); }

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
  // Copies, since dirname and basename may write into what they are given (POSIX).
  const Text directory_copy(strdup(python_file));
  const Text name_copy(strdup(python_file));
  if (!directory_copy || !name_copy) {
    LogAllocationError();
    return nullptr;
  }
  const char* file_name = basename(name_copy.get());
  if (!IsPythonFile(file_name)) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Invalid input - file name should contain '.py' postfix");
    return nullptr;
  }
  const Text statement = AppendPathStatement(dirname(directory_copy.get()));
  if (!statement) {
    LogAllocationError();
    PyErr_Clear();
    return nullptr;
  }
  if (PyRun_SimpleStringFlags(statement.get(), nullptr) != 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Could not add file location to PYTHONPATH");
    tev_python_environment_print_error();
    return nullptr;
  }
  const Text module_name(strndup(file_name, strlen(file_name) - 3));
  if (!module_name) {
    LogAllocationError();
    return nullptr;
  }
  PyObject* module = PyImport_ImportModule(module_name.get());
  if (module == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Could not import %s", module_name.get());
    tev_python_environment_print_error();
  }
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
