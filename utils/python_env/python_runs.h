// PythonRuns: whether Python objects can still be given back.

#ifndef RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_
#define RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_

#include "utils/python_env/python.h"
#include "utils/python_env/python_env.h"

// The environment may be set beside a stopped interpreter: a script's SystemExit stops it, and the process's exit
// handlers, which may well finalize the plug-in, are called after that.
inline bool PythonRuns() { return tev_python_environment_is_set() != 0 && Py_IsInitialized() != 0; }

#endif  // RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_
