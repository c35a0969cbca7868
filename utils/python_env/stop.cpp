// The end of a life: the interpreter stops, or is kept because of what scripts have left in the process.

#include <chrono>
#include <climits>
#include <thread>

#include "utils/log/log.h"
#include "utils/python_env/extension_modules.h"
#include "utils/python_env/interpreter.h"
#include "utils/python_env/kept_mark.h"
#include "utils/python_env/life.h"

namespace {

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

// The state of the thread that started the interpreter: the list begins with the newest.
PyThreadState* FirstThread() {
  PyThreadState* first = PyInterpreterState_ThreadHead(PyThreadState_Get()->interp);
  while (PyThreadState* const older = PyThreadState_Next(first)) first = older;
  return first;
}

// Whether threads would be left behind in an interpreter that is stopped: they would resume in the next one, where
// their state no longer exists, and crash. Waits a little for those that are just ending, which need the interpreter's
// lock for it.
bool ThreadsStay() {
  PyThreadState* const own = PyThreadState_Get();
  PyThreadState* const first = FirstThread();
  for (int attempt = 0; attempt < 10; ++attempt) {
    PyThreadState* other = PyInterpreterState_ThreadHead(own->interp);
    while (other == own || (other != nullptr && other == first)) other = PyThreadState_Next(other);
    if (other == nullptr) return false;
    PyEval_SaveThread();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    PyEval_RestoreThread(own);
  }
  return true;
}

const char* TextOf(const OwnedRef& text) {
  const char* const utf8 = text && PyUnicode_Check(text.get()) ? PyUnicode_AsUTF8(text.get()) : nullptr;
  PyErr_Clear();
  return utf8 != nullptr ? utf8 : "unknown";
}

// Whether the interpreter has to stay, after a message for each reason.
bool HasToStay() {
  const bool threads = ThreadsStay();
  if (threads) {
    TEV_UTIL_LOG(TEV_LOG_WARNING, "[python environment] the interpreter stays, because of the thread %s",
                 TextOf(CallLife("thread_left")));
  }
  char module[PATH_MAX];
  const bool once_only = FindOnceOnlyModule(module);
  if (once_only) {
    TEV_UTIL_LOG(TEV_LOG_INFO,
                 "[python environment] the interpreter stays, because %s has imported the extension module %s",
                 TextOf(CallLife("importer_of", module)), module);
  }
  const bool moved = FirstThread() != PyThreadState_Get();
  if (moved) {
    TEV_UTIL_LOG(TEV_LOG_INFO, "[python environment] the interpreter stays, because another thread has started it");
  }
  return threads || once_only || moved;
}

bool IsClosed(PyObject* stream) {
  const OwnedRef closed(PyObject_GetAttrString(stream, "closed"));
  const bool is_closed = closed && PyObject_IsTrue(closed.get()) > 0;
  PyErr_Clear();
  return is_closed;
}

bool Flush(const char* name) {
  PyObject* const found = PySys_GetObject(name);  // borrowed
  if (found == nullptr || found == Py_None) return true;
  const OwnedRef stream = NewRef(found);
  if (IsClosed(stream.get())) return true;
  const OwnedRef done(PyObject_CallMethod(stream.get(), "flush", nullptr));
  if (!done) PyErr_WriteUnraisable(stream.get());
  return done != nullptr;
}

int32_t LogErrors() {
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] errors while finalizing python environment");
  return -1;
}

}  // namespace

int32_t FlushStreams() {
  const bool out = Flush("stdout");
  const bool error = Flush("stderr");
  return out && error ? 0 : LogErrors();
}

PyGILState_STATE JoinInterpreter() {
  const PyGILState_STATE lock = PyGILState_Ensure();
  RemoveKeptMark();
  CallLife("begin");
  return lock;
}

int32_t StopInterpreter(const PyGILState_STATE* joined) {
  EndScripts();
  if (!HasToStay()) return Py_FinalizeEx() == 0 ? 0 : LogErrors();
  CallLife("end");
  const int32_t result = FlushStreams();
  // Without the mark nobody would find the interpreter again: then this thread keeps its lock, and can go on with it.
  if (!SetKeptMark()) return result;
  if (joined != nullptr) {
    PyGILState_Release(*joined);
  } else {
    PyEval_SaveThread();
  }
  return result;
}

bool InterpreterIsKept() { return HasKeptMark(); }
