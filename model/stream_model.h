// A model of the event stream: random results of scripts, as Python source and as the tokens that they must become.
//
// It knows what each shape of result is written as, and nothing of how a walk goes about it.

#ifndef RUBRUF_MODEL_STREAM_MODEL_H_
#define RUBRUF_MODEL_STREAM_MODEL_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/standin/token.h"

namespace stream_model {

struct Value;
using Ref = std::shared_ptr<const Value>;  // a value referred to twice is one Python object in two places

struct Value {
  standin::TokenType type;                                // kDictStart, kListStart, or the type of a scalar's token
  std::string literal;                                    // in Python; lists and dictionaries may leave it to `entries`
  std::string payload;                                    // of a scalar's token
  std::vector<std::pair<std::string, Ref>> entries = {};  // in order; no dictionary has a key twice, list items have ""
  bool sticks = false;                                    // only the walk of a tolerant script gets past it
  bool overflows = false;                                 // an integer that a tolerant script leaves out
};

// Where the generator gets its numbers: a random engine, or the bytes of a fuzzer's input.
using Random = std::function<uint32_t()>;

// A list or dictionary without cycles, of a few thousand tokens at most whatever the numbers; all zero they make an
// empty one. About one in eight may hold lists directly in lists, and one in 64 what only a tolerant walk gets past.
Ref RandomResult(const Random& random);

// Statements that leave the value in the variable `result`.
std::string ToPython(const Ref& value);

// The numbers of the key texts, as the provider hands them out in its lifetime. Texts end at their first zero
// character.
struct KeyIds {
  uint32_t Of(const std::string& key);

  std::map<std::string, uint32_t> known;
  uint32_t next = 0;
};

// The stream of a collection with this result. The payload of its time stamp is left empty.
struct Stream {
  std::vector<standin::Token> tokens = {};
  bool complete = true;  // else the walk ends early, at a list in a list or where it sticks
  bool sticks = false;
  size_t left_out = 0;  // values of a tolerant script
};
Stream StreamOf(const Ref& result, KeyIds* ids, bool tolerant);

}  // namespace stream_model

#endif  // RUBRUF_MODEL_STREAM_MODEL_H_
