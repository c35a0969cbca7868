// PythonRuns: whether Python objects can still be given back.

#ifndef RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_
#define RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_

// False without users of the interpreter, and in two cases with users. A script's SystemExit stops the interpreter, and
// the process's exit handlers, which may finalize the plug-in, are called after that. And in a child of a fork the
// interpreter's threads are missing, for which Python code would wait.
bool PythonRuns();

// Whether the interpreter was started here, and not by the host.
bool InterpreterIsOurs();

#endif  // RUBRUF_UTILS_PYTHON_ENV_PYTHON_RUNS_H_
