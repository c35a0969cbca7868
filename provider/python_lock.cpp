// Where the interpreter's lock is taken and given back.

#include "provider/python_lock.h"

#include <utility>

#include "utils/log/log.h"
#include "utils/python_env/python.h"
#include "utils/python_env/python_runs.h"

namespace {

int callbacks = 0;  // that are running, one inside the other
bool gives_back = false;
PyThreadState* given_back = nullptr;  // of the thread that drives the provider, while it does not hold the lock

}  // namespace

PythonLock::PythonLock() {
  if (callbacks++ != 0 || given_back == nullptr) return;
  PyThreadState* const state = std::exchange(given_back, nullptr);
  // The host may have stopped the interpreter.
  if (PythonRuns()) PyEval_RestoreThread(state);
}

PythonLock::~PythonLock() {
  if (--callbacks == 0 && gives_back && PythonRuns()) given_back = PyEval_SaveThread();
}

void PythonLock::BeginLife() {
  gives_back = InterpreterIsOurs();
  if (!gives_back) TEV_LOG(TEV_LOG_WARNING, "[python provider] the interpreter is the host's and keeps its lock");
}

void PythonLock::EndLife() { gives_back = false; }
