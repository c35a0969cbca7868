// The floor: the least that it costs to visit a result and write its tokens.

#ifndef RUBRUF_BENCH_FLOOR_H_
#define RUBRUF_BENCH_FLOOR_H_

#include "host/tev_host.h"
#include "utils/python_env/python.h"

// Writes the tokens of `result` (borrowed) by plain recursion. It has no registry of key names (every key has the ID
// 0), cannot resume, and checks nothing.
void WriteByRecursion(PyObject* result, tev_data_serializer_t* serializer);

#endif  // RUBRUF_BENCH_FLOOR_H_
