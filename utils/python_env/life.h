// Calls into life.py, which runs inside the interpreter and prepares one that stays for its next life.

#ifndef RUBRUF_UTILS_PYTHON_ENV_LIFE_H_
#define RUBRUF_UTILS_PYTHON_ENV_LIFE_H_

#include "utils/python_env/owned_ref.h"

// Loads life.py into a new interpreter of ours, which keeps it. Without success the other functions do nothing.
void LoadLife();

// Tells life.py that a script was imported, and which extension module has come with it.
void NoteImport(const char* script);

// Calls a function of life.py, with a text in the file system's encoding if `argument` is not null. Null where there is
// no such function, because no interpreter of ours runs or a script has spoiled it, and where it raised; no Python
// error stays pending.
OwnedRef CallLife(const char* function, const char* argument = nullptr);

#endif  // RUBRUF_UTILS_PYTHON_ENV_LIFE_H_
