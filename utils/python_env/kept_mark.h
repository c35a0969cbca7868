// The mark of a process whose interpreter was kept.
//
// It can be read without the interpreter's lock, and outlasts this library, which a host may unload and load again.

#ifndef RUBRUF_UTILS_PYTHON_ENV_KEPT_MARK_H_
#define RUBRUF_UTILS_PYTHON_ENV_KEPT_MARK_H_

bool HasKeptMark();

// Sets or removes the mark; with the interpreter's lock. False when memory ran out.
bool SetKeptMark();
void RemoveKeptMark();

#endif  // RUBRUF_UTILS_PYTHON_ENV_KEPT_MARK_H_
