// The process's interpreter, for the layer that counts its users: its start, its stop, and its stay.
//
// A life lasts from the first user to the last. An interpreter that was started here is stopped at the end of a life,
// unless something in the process would not survive that: then it is kept, without its lock, for the next life.

#ifndef RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_
#define RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_

#include <stdint.h>

#include "utils/python_env/python.h"

// Whether the process's Python is of the version that this library was built for; false after an error message.
bool IsPythonOfThisBuild();

// Makes libpython's symbols visible to the extension modules that scripts import, and keeps it loaded. False after an
// error message where these modules would find the symbols of another libpython.
bool OfferLibpython();

// Starts the interpreter, without signal handlers; Py_IsInitialized() tells of success, and a message of the reason why
// not. The calling thread then holds its lock.
void StartInterpreter();

// Whether an interpreter of ours was kept. Needs no lock.
bool InterpreterIsKept();

// Begins a life in the interpreter that was kept: takes its lock, on any thread, and makes it as good as new. The
// result is for StopInterpreter.
PyGILState_STATE JoinInterpreter();

// Ends a life in an interpreter of ours: ends the scripts' threads, and stops the interpreter or keeps it, after a
// message why. `joined` is the result of JoinInterpreter, null if this life has started the interpreter. 0, or -1 after
// a message where Python reported errors. On the thread that holds the interpreter's lock.
int32_t StopInterpreter(const PyGILState_STATE* joined);

// Writes out what scripts have printed. 0, or -1 after a message.
int32_t FlushStreams();

#endif  // RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_
