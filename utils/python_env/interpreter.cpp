// The start and the stop of the interpreter, beside a host that has signals and perhaps a Python of its own, and
// scripts that have threads.

#include "utils/python_env/interpreter.h"

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <dlfcn.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"

namespace {

// In sys, the mark of an interpreter that was started here and is left running, for threads that stay in it.
constexpr char kLeft[] = "_rubruf_left";

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

}  // namespace

// The inlined parts of CPython's interface are those of one version. Another one can come before it in the process,
// from a host that links it.
bool IsPythonOfThisBuild() {
  constexpr char kVersion[] = Py_STRINGIFY(PY_MAJOR_VERSION) "." Py_STRINGIFY(PY_MINOR_VERSION) ".";
  if (strncmp(Py_GetVersion(), kVersion, strlen(kVersion)) == 0) return true;
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] the process has Python %.6s, and this library is made for %s*",
               Py_GetVersion(), kVersion);
  return false;
}

// Extension modules do not link libpython, and a host that loads us with RTLD_LOCAL keeps our dependencies to us.
// Without success such an import fails with "undefined symbol", and everything else works.
void PromoteLibpython() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&Py_InitializeEx), &info) == 0) return;
  // It also stays loaded when we are unloaded: extension modules and threads of scripts may outlive us and need it.
  void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD | RTLD_NODELETE);
  // Scope and stay are the library's; only this handle ends.
  if (library != nullptr) dlclose(library);
}

int32_t StopInterpreter() {
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

bool TakeBackInterpreter() {
  if (PySys_GetObject(kLeft) == nullptr) return false;
  PySys_SetObject(kLeft, nullptr);
  return true;
}
