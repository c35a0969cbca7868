// Turns the tokens of a collection into a line of JSON.

#ifndef RUBRUF_HOST_STANDIN_JSON_WRITER_H_
#define RUBRUF_HOST_STANDIN_JSON_WRITER_H_

#include <string>
#include <vector>

#include "host/standin/token.h"

namespace standin {

// {"source": TAG, "timestamp": MICROSECONDS, "data": VALUE}, without a line end; both are null for a collection without
// tokens. Doubles that JSON cannot hold become null. Needs no stack for nested values, however deep.
// Throws BrokenStream unless the tokens are a complete collection: a time stamp and then one list or dictionary, all
// markers in pairs, a key name before each value of a dictionary, and each key ID the one under which the token stands.
std::string ToJsonLine(const std::string& tag, const std::vector<Token>& tokens);

// JSON without line ends as indented lines, without the last line end. Needs no stack for nested values either.
std::string Indented(const std::string& json);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_JSON_WRITER_H_
