// The interpreter's start, its users and its stop; importing a script.

#include "utils/python_env/python_env.h"

#include <dlfcn.h>
#include <libgen.h>

#include <chrono>
#include <csignal>
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

// Calls a function of a module, if that is imported; whatever it raises is dropped.
void CallIfImported(const char* module, const char* function) {
  const OwnedRef name(PyUnicode_FromString(module));
  const OwnedRef imported(name ? PyImport_GetModule(name.get()) : nullptr);
  const OwnedRef result(imported ? PyObject_CallMethod(imported.get(), function, nullptr) : nullptr);
  PyErr_Clear();
}

// What Py_FinalizeEx begins with: the wait for threads that are no daemons, and then the functions registered with
// atexit, which end the threads of pools. Py_FinalizeEx finds both done.
void EndScripts() {
  CallIfImported("threading", "_shutdown");
  CallIfImported("atexit", "_run_exitfuncs");
}

// Whether threads would be left behind in an interpreter that is stopped: they would wake up in the next one, with
// nothing there of what they knew, and crash. Some time is given to those that are just ending, for which they need the
// interpreter's lock.
bool ThreadsStay() {
  for (int attempt = 0; attempt < 10; ++attempt) {
    PyThreadState* const state = PyThreadState_Get();
    PyThreadState* const newest = PyInterpreterState_ThreadHead(state->interp);
    if (newest == state && PyThreadState_Next(newest) == nullptr) return false;
    PyEval_SaveThread();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    PyEval_RestoreThread(state);
  }
  return true;
}

// In sys, the mark of an interpreter that was started here and is left running, for threads that stay in it.
constexpr char kLeft[] = "_rubruf_left";

// Whether the interpreter that runs was left, and is ours again.
bool TakeBackInterpreter() {
  if (PySys_GetObject(kLeft) == nullptr) return false;
  PySys_SetObject(kLeft, nullptr);
  return true;
}

// The inlined parts of CPython's interface are those of one version. Another one can come before it in the process,
// from a host that links it.
bool IsPythonOfThisBuild() {
  constexpr char kVersion[] = Py_STRINGIFY(PY_MAJOR_VERSION) "." Py_STRINGIFY(PY_MINOR_VERSION) ".";
  if (strncmp(Py_GetVersion(), kVersion, strlen(kVersion)) == 0) return true;
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] the process has Python %.6s, and this library is made for %s*",
               Py_GetVersion(), kVersion);
  return false;
}

// Starts the interpreter without a hand on SIGINT: CPython's module of signals, once imported, takes it
// from a host that has no handler, and gives the default back at the stop, whatever the host has put there since.
void StartInterpreter() {
  struct sigaction of_host {};
  sigaction(SIGINT, nullptr, &of_host);
  Py_InitializeEx(0);
  if (Py_IsInitialized() == 0) return;
  const OwnedRef signals(PyImport_ImportModule("_signal"));
  const OwnedRef by_default(signals ? PyObject_GetAttrString(signals.get(), "SIG_DFL") : nullptr);
  if (by_default && of_host.sa_handler == SIG_DFL) {
    const OwnedRef before(PyObject_CallMethod(signals.get(), "signal", "iO", SIGINT, by_default.get()));
  }
  PyErr_Clear();
  sigaction(SIGINT, &of_host, nullptr);
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
  EndScripts();
  if (ThreadsStay()) {
    PySys_SetObject(kLeft, Py_True);
    TEV_UTIL_LOG(TEV_LOG_WARNING, "[python environment] threads of scripts are still there, so the interpreter stays");
    return 0;
  }
  if (Py_FinalizeEx() != 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] errors while finalizing python environment");
    return -1;
  }
  return 0;
}
