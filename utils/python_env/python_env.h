// The embedded Python interpreter. The first user starts it, and the last one stops it.
//
// The layer has no lock of its own. The thread that starts the interpreter holds the global interpreter lock from then
// on, and only that thread may use Python and this layer. The last finalize releases the lock for moments, while
// threads of scripts end. If the host has started an interpreter, that one is used and left running. An interpreter
// that an earlier finalize has kept is used again, on any thread.

#ifndef RUBRUF_UTILS_PYTHON_ENV_PYTHON_ENV_H_
#define RUBRUF_UTILS_PYTHON_ENV_PYTHON_ENV_H_

#include <stdint.h>

#include "../export.h"

#ifdef __cplusplus
extern "C" {
#endif

// CPython's own name for the type, so that users of this header need not include Python.h.
typedef struct _object PyObject;

// Starts the interpreter (without signal handlers) or counts one more user. 0 on success, -1 after an error message; a
// later call then tries again. Where an interpreter of the host's runs already, the calling thread must hold its lock.
TEV_EXPORT int32_t tev_python_environment_init(void);

// 1 while the interpreter has users, else 0.
TEV_EXPORT int tev_python_environment_is_set(void);

// Prints the pending Python error to the interpreter's standard error and clears it; nothing without an interpreter. A
// pending SystemExit ends the process (PyErr_Print).
TEV_EXPORT void tev_python_environment_print_error(void);

// Imports the module of a ".py" file by its name, after appending the file's directory to sys.path. A new reference, or
// null after an error message; a Python error is then printed and cleared. Files of the same name share one module.
TEV_EXPORT PyObject* tev_python_environment_get_module(const char* python_file);

// Removes one user. The last one stops the interpreter, with two exceptions. An interpreter of the host keeps running.
// One that could not start again, because of modules or threads of scripts, is kept after a message, and its lock is
// released. In a forked child the interpreter is neither stopped nor kept. 0 on success, also if nothing was started;
// -1 if the interpreter or its streams reported errors, which has no other effect.
TEV_EXPORT int32_t tev_python_environment_finalize(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // RUBRUF_UTILS_PYTHON_ENV_PYTHON_ENV_H_
