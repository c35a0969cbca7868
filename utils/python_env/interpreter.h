// The start and the stop of the process's interpreter, for the layer that counts its users.

#ifndef RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_
#define RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_

#include <stdint.h>

// Whether the process's Python is of the version that this library was built for; false after an error message.
bool IsPythonOfThisBuild();

// Makes libpython's symbols visible to the extension modules that scripts import, and keeps it loaded.
void PromoteLibpython();

// Starts the interpreter, without signal handlers; Py_IsInitialized() tells of success. The calling thread then holds
// its lock.
void StartInterpreter();

// Ends the scripts' threads and stops the interpreter; with threads that cannot be ended it is left running, after a
// warning. 0, or -1 after a message where Python reported errors. On the thread that holds the interpreter's lock.
int32_t StopInterpreter();

// Whether the interpreter that runs was left by a stop; it is then ours to stop again.
bool TakeBackInterpreter();

#endif  // RUBRUF_UTILS_PYTHON_ENV_INTERPRETER_H_
