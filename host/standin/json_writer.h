// The tokens of a collection as a line of JSON.

#ifndef RUBRUF_HOST_STANDIN_JSON_WRITER_H_
#define RUBRUF_HOST_STANDIN_JSON_WRITER_H_

#include <string>
#include <vector>

#include "host/standin/token.h"

namespace standin {

// Returns {"source": TAG, "timestamp": MICROSECONDS, "data": VALUE}, without a line end. For a collection without
// tokens the time stamp and the data are null. A double that JSON cannot hold becomes null. Nested values use no stack,
// however deep they are. Throws BrokenStream unless the tokens are one complete collection: a time stamp, then one list
// or dictionary, all markers in pairs, a key name before each value of a dictionary, and the right key ID in each
// token.
std::string ToJsonLine(const std::string& tag, const std::vector<Token>& tokens);

// `json` (one line) as indented lines, without the last line end. Nested values use no stack.
std::string Indented(const std::string& json);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_JSON_WRITER_H_
