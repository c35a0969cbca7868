// life.py, which the build makes a text of the library.

#ifndef RUBRUF_UTILS_PYTHON_ENV_LIFE_SOURCE_H_
#define RUBRUF_UTILS_PYTHON_ENV_LIFE_SOURCE_H_

extern const char kLifeSource[];

#endif  // RUBRUF_UTILS_PYTHON_ENV_LIFE_SOURCE_H_
