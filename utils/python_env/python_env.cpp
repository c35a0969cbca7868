// The interpreter's start, its users and its stop; importing a script.

#include "utils/python_env/python_env.h"

#include <dlfcn.h>
#include <libgen.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"

namespace {

struct PythonEnvironment {
  uint32_t users;
  bool interpreter_is_ours;  // started here, and so to be stopped here
};

PythonEnvironment* python_environment = nullptr;

// An interpreter that was started here still runs, for threads of scripts that stay in it.
bool interpreter_is_left = false;

struct Free {
  void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, Free>;

// Makes libpython's symbols visible to the extension modules that scripts import. Those do not link libpython, and a
// host that loads us with RTLD_LOCAL keeps our dependencies to us. Without success such an import fails with "undefined
// symbol", and everything else works.
void PromoteLibpython() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&Py_InitializeEx), &info) == 0) return;
  // It also stays loaded when we are unloaded: extension modules and threads of scripts may outlive us and need it.
  void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD | RTLD_NODELETE);
  // Scope and stay are the library's; only this handle ends.
  if (library != nullptr) dlclose(library);
}

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

// The number of threads that Py_FinalizeEx waits for: those of the module threading that are no daemons.
int CountAwaitedThreads() {
  const OwnedRef name(PyUnicode_FromString("threading"));
  const OwnedRef threading(name ? PyImport_GetModule(name.get()) : nullptr);
  const OwnedRef threads(threading ? PyObject_CallMethod(threading.get(), "enumerate", nullptr) : nullptr);
  int count = -1;  // the thread that asks is listed as well
  for (Py_ssize_t i = 0; threads && i < PyList_Size(threads.get()); ++i) {
    const OwnedRef daemon(PyObject_GetAttrString(PyList_GET_ITEM(threads.get(), i), "daemon"));
    if (daemon.get() == Py_False) ++count;
  }
  PyErr_Clear();
  return count;
}

// Whether threads would be left behind in an interpreter that is stopped: they would wake up in the next one, with
// nothing there of what they knew, and crash.
bool HasThreadsToStay() {
  int others = -1;
  for (PyThreadState* state = PyInterpreterState_ThreadHead(PyThreadState_Get()->interp); state != nullptr;
       state = PyThreadState_Next(state)) {
    ++others;
  }
  return others > 0 && others > CountAwaitedThreads();
}

// The same, after some time for threads that are just ending, for which they need the interpreter's lock.
bool ThreadsStay() {
  for (int attempt = 0; attempt < 10; ++attempt) {
    if (!HasThreadsToStay()) return false;
    PyThreadState* state = PyEval_SaveThread();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    PyEval_RestoreThread(state);
  }
  return true;
}

// Calls what scripts have registered with atexit, as the interpreter's stop would. It ends the threads of pools.
void RunExitFunctions() {
  const OwnedRef atexit_module(PyImport_ImportModule("atexit"));
  const OwnedRef done(atexit_module ? PyObject_CallMethod(atexit_module.get(), "_run_exitfuncs", nullptr) : nullptr);
  PyErr_Clear();
}

void LogAllocationError() { TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Memory allocation error"); }

}  // namespace

int32_t tev_python_environment_init(void) {
  if (python_environment != nullptr) {
    ++python_environment->users;
    return 0;
  }
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
  Py_InitializeEx(0);
  if (const int initialized = Py_IsInitialized(); initialized == 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Py_IsInitialized returned %d", initialized);
    free(python_environment);
    python_environment = nullptr;
    return -1;
  }
  python_environment->users = 1;
  python_environment->interpreter_is_ours = !runs_already || interpreter_is_left;
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
  if (!interpreter_is_ours) return 0;
  interpreter_is_left = ThreadsStay();
  if (interpreter_is_left) {
    RunExitFunctions();
    interpreter_is_left = ThreadsStay();
  }
  if (interpreter_is_left) {
    TEV_UTIL_LOG(TEV_LOG_WARNING, "[python environment] threads of scripts are still there, so the interpreter stays");
    return 0;
  }
  if (Py_FinalizeEx() != 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] errors while finalizing python environment");
    return -1;
  }
  return 0;
}
