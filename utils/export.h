// Marks what librubruf.so exports. Everything else is hidden, and cmake/rubruf.exports lists the exported names.

#ifndef RUBRUF_UTILS_EXPORT_H_
#define RUBRUF_UTILS_EXPORT_H_

#define TEV_EXPORT __attribute__((visibility("default")))

#endif  // RUBRUF_UTILS_EXPORT_H_
