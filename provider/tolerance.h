// Tolerance: what the walk of a tolerant script's result leaves out, because the event stream cannot carry it.
//
// A script is tolerant if its option "tolerant" is set. Its walk asks about each entry and item when it has fetched it,
// before anything of it is written, and passes over what cannot be carried.

#ifndef RUBRUF_PROVIDER_TOLERANCE_H_
#define RUBRUF_PROVIDER_TOLERANCE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/python_env/python.h"

// Why a key or value cannot be carried.
enum class Obstacle : uint8_t { kNone, kType, kEncoding, kLength, kInteger, kListInList, kCircle };

// The obstacle in a dictionary's key, and in a value that is neither a list nor a dictionary (both borrowed). The same
// object always has the same answer: texts and numbers do not change, and Python keeps the UTF-8 form that it has made
// of a text. May run Python code, a script's handler of encoding errors; leaves no Python error pending. Throws
// std::bad_alloc.
Obstacle KeyObstacle(PyObject* key);
Obstacle ScalarObstacle(PyObject* value);

// What is left out of one result.
struct Tolerance {
  bool on = false;      // the script is tolerant
  size_t left_out = 0;  // the number of values
  std::string first;    // place and reason of the first one
};

#endif  // RUBRUF_PROVIDER_TOLERANCE_H_
