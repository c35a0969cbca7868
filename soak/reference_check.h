// The reference check: no collection, whatever comes of it, changes the number of references in the interpreter. One
// that does not count them tells of lost objects, by the blocks of memory that its objects take.

#ifndef RUBRUF_SOAK_REFERENCE_CHECK_H_
#define RUBRUF_SOAK_REFERENCE_CHECK_H_

#include "host/standin/plugin.h"

namespace soak {

// Collects each of samples.py so often, in each way of a host, and prints a table. Throws std::runtime_error when the
// number has changed, of blocks by one a collection at least, and when Python counts neither.
void CheckReferences(const standin::Plugin& plugin, int collections);

}  // namespace soak

#endif  // RUBRUF_SOAK_REFERENCE_CHECK_H_
