// A model of the event stream: random results of scripts, as Python source and as the tokens that they must become.
//
// The model knows which tokens each result becomes, and shares no code with the walk that it checks.

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
using Ref = std::shared_ptr<const Value>;  // two references to one value: the same Python object in two places

struct Value {
  standin::TokenType type;                                // kDictStart, kListStart, or the type of a scalar's token
  std::string literal;                                    // Python code; if empty, it is made from `entries`
  std::string payload;                                    // a scalar token's payload
  std::vector<std::pair<std::string, Ref>> entries = {};  // in order; a dictionary's keys differ, a list's are ""
  bool sticks = false;                                    // cannot be written; a tolerant script leaves it out
  bool overflows = false;                                 // an int beyond 64 bits: -1, or left out by a tolerant script
};

// The source of the generator's numbers: a random engine, or the bytes of a fuzzer's input.
using Random = std::function<uint32_t()>;

// A random list or dictionary, of a few thousand tokens at most; if all numbers are zero, it is empty. One in eight may
// have a list directly in a list. One in 64 may have a value that cannot be written, such as None or a cycle.
Ref RandomResult(const Random& random);

// Python statements that assign the value to the variable `result`.
std::string ToPython(const Ref& value);

// The key IDs of one life of the provider, by key text. A text counts up to its first zero character.
struct KeyIds {
  uint32_t Of(const std::string& key);

  std::map<std::string, uint32_t> known;
  uint32_t next = 0;
};

// The stream of a collection with this result. The payload of its time stamp is left empty.
struct Stream {
  std::vector<standin::Token> tokens = {};
  bool complete = true;  // false if the walk ends early, at a list in a list or at a value that it cannot write
  bool sticks = false;   // it ends early at such a value: the walk is stuck
  size_t left_out = 0;   // the number of values that a tolerant script leaves out
};
Stream StreamOf(const Ref& result, KeyIds* ids, bool tolerant);

}  // namespace stream_model

#endif  // RUBRUF_MODEL_STREAM_MODEL_H_
