// The embedded Python interpreter, started once for all its users and stopped with the last.
//
// The layer has no lock of its own and leaves the global interpreter lock where it is: the thread that starts the
// interpreter holds it from then on, and that thread alone may use Python and this layer, one call at a time. Only the
// last finalize gives it away for moments, while threads of scripts are ending. An interpreter that runs already is
// used as it is, and left running if it is the host's. One that an earlier finalize has kept is used again, on any
// thread.

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

// Gives up one user. The last one stops the interpreter, unless it is the host's, or would not come up again because of
// what scripts have loaded or left; then it is kept, after a message, and its lock is given back. In a forked child the
// interpreter is only let go. 0 on success, also when nothing was started; -1 when the interpreter or its streams
// reported errors, which changes nothing else.
TEV_EXPORT int32_t tev_python_environment_finalize(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // RUBRUF_UTILS_PYTHON_ENV_PYTHON_ENV_H_
