// The model: the generator of random results, their Python source, and the stream that they become.

#include "model/stream_model.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace stream_model {
namespace {

using namespace std::string_literals;
using standin::PayloadOf, standin::Token;

const std::string kKeys[] = {"k", "z", "a", "K", "", "\u00e9", "k\0a"s, "k\0b"s, "\U0001f600", std::string(300, 'n')};

Value Long(const std::string& literal, int64_t value) { return {standin::kLong, literal, PayloadOf(value)}; }
Value Overflow(const std::string& literal) {
  return {standin::kLong, literal, PayloadOf(int64_t{-1}), {}, false, true};
}
Value Double(const std::string& literal, double value) { return {standin::kDouble, literal, PayloadOf(value)}; }
Value String(const std::string& text) { return {standin::kString, standin::Quoted(text), text}; }

const Value kScalars[] = {Long("0", 0),
                          Long("1", 1),
                          Long("2**63 - 1", INT64_MAX),
                          Overflow("2**63"),
                          Long("-2**63", INT64_MIN),
                          Overflow("-2**63 - 1"),
                          Long("-7", -7),
                          Long("2**30", 1 << 30),
                          Long("1 - 2**30", 1 - (1 << 30)),
                          Double("-0.0", -0.0),
                          Double("1500.5", 1500.5),
                          Double("float('inf')", HUGE_VAL),
                          Double("float('nan')", std::nan("")),
                          String(""),
                          String("a\0b\0"s),
                          String("'\"\\\n\r\t\x7f"),
                          String("\u65e5\u672c\U0001f600"),
                          String(std::string(300, 'x')),
                          {standin::kTrue, "True", ""},
                          {standin::kFalse, "False", ""}};

// Values that a walk cannot write. It gets stuck behind the tokens that it can write: a dictionary's start marker, and
// the key name "r" of the cycle.
const Value kObstacles[] = {{standin::kTrue, "None", "", {}, true},
                            {standin::kTrue, "(1, 2)", "", {}, true},
                            {standin::kTrue, "'\\ud800'", "", {}, true},
                            {standin::kDictStart, "{5: 1}", "", {}, true},
                            {standin::kDictStart, "{'\\udfff': 1}", "", {}, true},
                            {standin::kDictStart,
                             "(lambda ring: ring.update(r=ring) or ring)({})",
                             "",
                             {{"r", std::make_shared<Value>(Value{standin::kTrue, "", "", {}, true})}}}};

// Makes one random result. Its size, width, depth and amount of sharing are drawn first.
class Generator {
 public:
  explicit Generator(const Random& random)
      : random_(random),
        places_left_(1 << Below(9)),
        width_(1 + Below(8)),
        nesting_(2 + Below(6)),
        sharing_(Below(8)),
        keys_(1 + Below(std::size(kKeys))),
        kind_(Below(64)) {}

  Ref Container(bool is_list) {
    Value made{is_list ? standin::kListStart : standin::kDictStart, "", ""};
    for (uint32_t left = Below(8) == 0 ? 0 : 1 + Below(width_); left > 0; --left) {
      const std::string key = is_list ? "" : Below(8) != 7 ? kKeys[Below(keys_)] : std::to_string(Below(5000));
      const auto has_key = [&key](const auto& entry) { return entry.first == key; };
      if (!is_list && std::any_of(made.entries.begin(), made.entries.end(), has_key)) continue;
      made.entries.emplace_back(key, Any(is_list));
    }
    return std::make_shared<Value>(std::move(made));
  }

  uint32_t Below(size_t bound) { return random_() % static_cast<uint32_t>(bound); }

 private:
  Ref Any(bool in_list) {
    const bool may_be_list = !in_list || kind_ % 8 == 7;
    if (!made_.empty() && Below(8) < sharing_) {
      const auto [again, places] = made_[Below(made_.size())];
      if (places <= places_left_ && (may_be_list || again->type != standin::kListStart)) {
        places_left_ -= places;
        return again;
      }
    }
    const int before = places_left_--;
    const bool is_nested = places_left_ > 0 && Below(8) < nesting_;
    Ref made = is_nested                      ? Container(may_be_list && Below(2) != 0)
               : kind_ == 62 && Below(8) == 0 ? std::make_shared<Value>(kObstacles[Below(std::size(kObstacles))])
                                              : std::make_shared<Value>(kScalars[Below(std::size(kScalars))]);
    made_.emplace_back(made, before - places_left_);
    return made;
  }

  const Random& random_;
  int places_left_;  // how many more values the stream may have; a shared value counts at each of its places
  const uint32_t width_, nesting_, sharing_, keys_;
  const uint32_t kind_;
  std::vector<std::pair<Ref, int>> made_;  // values that can be shared, and how many values each one holds
};

// Appends statements that assign each value to a variable, inner values first. So a shared value is one variable, and
// deep nesting does not exceed the limits of Python's parser. Returns the variable's name.
std::string Define(const Ref& value, std::unordered_map<const Value*, std::string>* names, std::string* source) {
  if (const auto known = names->find(value.get()); known != names->end()) return known->second;
  const bool is_dict = value->type == standin::kDictStart;
  std::string literal = value->literal;
  if (literal.empty()) {
    for (const auto& [key, item] : value->entries) {
      // A quoted JSON text is also a Python literal of the same text.
      literal += (is_dict ? standin::Quoted(key) + ": " : "") + Define(item, names, source) + ", ";
    }
    literal = is_dict ? "{" + literal + "}" : "[" + literal + "]";
  }
  const std::string name = "v" + std::to_string(names->size());
  *source += name + " = " + literal + "\n";
  return (*names)[value.get()] = name;
}

// True if the walk of a tolerant script leaves out `value`, an item of a list or the value of a dictionary entry.
bool IsLeftOut(const Value& value, bool in_list) {
  const bool is_iterable = value.type == standin::kDictStart || value.type == standin::kListStart;
  return value.overflows || (value.sticks && !is_iterable) || (in_list && value.type == standin::kListStart);
}

// Appends the tokens of `value` in a tolerant script's result. A dictionary that sticks has one entry, which is left
// out because of its key.
void AppendTolerantly(const Value& value, uint32_t key_id, KeyIds* ids, Stream* stream) {
  const bool is_dict = value.type == standin::kDictStart;
  stream->tokens.push_back({value.type, key_id, value.payload});
  if (!is_dict && value.type != standin::kListStart) return;
  stream->left_out += value.sticks;
  for (const auto& [key, item] : value.entries) {
    if (value.sticks) break;
    if (IsLeftOut(*item, !is_dict)) {
      ++stream->left_out;
      continue;
    }
    if (is_dict) stream->tokens.push_back({standin::kKeyName, ids->Of(key), key});
    AppendTolerantly(*item, is_dict ? ids->Of(key) : key_id, ids, stream);
  }
  stream->tokens.push_back({is_dict ? standin::kDictEnd : standin::kListEnd, key_id});
}

// Appends the tokens of `value`. False if the stream ends there: at a list in a list, or at a value that sticks.
bool Append(const Value& value, uint32_t key_id, KeyIds* ids, Stream* stream) {
  std::vector<Token>* const tokens = &stream->tokens;
  stream->sticks = value.sticks;
  if (!value.sticks || value.type == standin::kDictStart) tokens->push_back({value.type, key_id, value.payload});
  if (value.sticks) return false;
  if (value.type == standin::kDictStart) {
    for (const auto& [key, item] : value.entries) {
      tokens->push_back({standin::kKeyName, ids->Of(key), key});
      if (!Append(*item, ids->Of(key), ids, stream)) return false;
    }
    tokens->push_back({standin::kDictEnd, key_id});
  } else if (value.type == standin::kListStart) {
    for (const auto& [none, item] : value.entries) {
      if (item->type == standin::kListStart || !Append(*item, key_id, ids, stream)) return false;
    }
    tokens->push_back({standin::kListEnd, key_id});
  }
  return true;
}

}  // namespace

Ref RandomResult(const Random& random) {
  Generator generator(random);
  return generator.Container(generator.Below(2) != 0);
}

std::string ToPython(const Ref& value) {
  std::string source;
  std::unordered_map<const Value*, std::string> names;
  const std::string name = Define(value, &names, &source);
  return source + "result = " + name + "\n";
}

uint32_t KeyIds::Of(const std::string& key) {
  const auto [entry, is_new] = known.try_emplace(key.c_str(), next);
  if (is_new) ++next;
  return entry->second;
}

Stream StreamOf(const Ref& result, KeyIds* ids, bool tolerant) {
  if (result->entries.empty()) return {};
  Stream stream{{{standin::kNewCollection, standin::kNoKey}}};
  if (tolerant) {
    AppendTolerantly(*result, standin::kNoKey, ids, &stream);
  } else {
    stream.complete = Append(*result, standin::kNoKey, ids, &stream);
  }
  return stream;
}

}  // namespace stream_model
