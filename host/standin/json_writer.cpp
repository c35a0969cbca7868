// The writer of JSON. It appends text for each token and remembers only the open brackets.

#include "host/standin/json_writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

namespace standin {
namespace {

constexpr size_t kMaxIndent = 60;  // levels

void Require(bool condition, const char* message) {
  if (!condition) throw BrokenStream(message);
}

std::string Scalar(const Token& token) {
  switch (token.type) {
    case kString:
      return Quoted(token.payload);
    case kDouble:
      return nlohmann::json(NumberIn<double>(token)).dump();
    case kLong:
      return std::to_string(NumberIn<int64_t>(token));
    case kFalse:
      return "false";
    case kTrue:
      return "true";
    default:
      throw BrokenStream("a token of an unknown type");
  }
}

class JsonWriter {
 public:
  explicit JsonWriter(const std::string& tag) : line_("{\"source\": " + Quoted(tag) + ", \"timestamp\": ") {}

  void Add(const Token& token) {
    if (token.type == kNewCollection) return TimeStamp(token);
    Require(part_ == Part::kData, "a token before the time stamp or after the end");
    if (token.type == kKeyName) return KeyName(token);
    if (token.type == kDictEnd) return Close({'}', token.key_id});
    if (token.type == kListEnd) return Close({']', token.key_id});
    BeginValue(token.key_id);
    if (token.type == kDictStart) return Open('{', {'}', token.key_id});
    if (token.type == kListStart) return Open('[', {']', token.key_id});
    Require(!open_.empty(), "a value outside a list or dictionary");
    line_ += Scalar(token);
  }

  std::string Finish() && {
    if (part_ == Part::kData) {
      throw BrokenStream("the stream is incomplete, end markers missing: " + std::to_string(open_.size()) +
                         " (a list directly in a list ends a stream like this)");
    }
    return std::move(line_) + (part_ == Part::kEnd ? "}" : "null, \"data\": null}");
  }

 private:
  enum class Part { kTimeStamp, kData, kEnd };
  struct Bracket {
    char closing;
    uint32_t key_id;
  };

  void TimeStamp(const Token& token) {
    Require(part_ == Part::kTimeStamp && token.key_id == kNoKey, "a time stamp inside a collection or under a key");
    line_ += std::to_string(NumberIn<uint64_t>(token)) + ", \"data\": ";
    part_ = Part::kData;
  }

  void KeyName(const Token& token) {
    Require(InDict() && !key_, "a key name where none belongs");
    Separate();
    line_ += Quoted(token.payload) + ": ";
    key_ = token.key_id;
  }

  void BeginValue(uint32_t key_id) {
    Require(!InDict() || key_, "a value without its key name");
    const uint32_t key_id_here = key_ ? *key_ : open_.empty() ? kNoKey : open_.back().key_id;
    Require(key_id == key_id_here, "a value under another key ID than its key's or list's");
    if (!key_) Separate();
    key_.reset();
  }

  void Open(char opening, Bracket bracket) {
    line_ += opening;
    open_.push_back(bracket);
    first_ = true;
  }

  void Close(Bracket end) {
    Require(!open_.empty() && open_.back().closing == end.closing && open_.back().key_id == end.key_id,
            "an end marker that does not match its start marker");
    Require(!key_, "a key name without its value");
    line_ += end.closing;
    open_.pop_back();
    first_ = false;
    if (open_.empty()) part_ = Part::kEnd;
  }

  bool InDict() const { return !open_.empty() && open_.back().closing == '}'; }

  void Separate() {
    if (!first_) line_ += ", ";
    first_ = false;
  }

  std::string line_;
  Part part_ = Part::kTimeStamp;
  std::vector<Bracket> open_;
  std::optional<uint32_t> key_;  // the ID of a key name whose value has not come yet
  bool first_ = true;            // the innermost bracket is still empty
};

}  // namespace

std::string ToJsonLine(const std::string& tag, const std::vector<Token>& tokens) {
  JsonWriter writer(tag);
  size_t number = 0;
  for (const Token& token : tokens) {
    ++number;
    try {
      writer.Add(token);
    } catch (const BrokenStream& error) {
      throw BrokenStream("token " + std::to_string(number) + ", " + TypeName(token.type) + ": " + error.what());
    }
  }
  return std::move(writer).Finish();
}

std::string Indented(const std::string& json) {
  std::string lines;
  size_t depth = 0;
  // The indentation is limited, because the size of a very deep value would grow with the square of its depth.
  const auto begin_line = [&] { lines.append("\n").append(2 * std::min(depth, kMaxIndent), ' '); };
  bool in_text = false;
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (in_text) {
      lines += c;
      if (c == '\\') lines += json[++i];
      in_text = c != '"';
      continue;
    }
    const bool closes = c == '}' || c == ']';
    if (closes) --depth;
    if (closes && lines.back() != '{' && lines.back() != '[') begin_line();
    if (c != ' ' || lines.back() == ':') lines += c;
    in_text = c == '"';
    const bool opens = c == '{' || c == '[';
    if (opens) ++depth;
    const bool empty = opens && (json[i + 1] == '}' || json[i + 1] == ']');
    if (c == ',' || (opens && !empty)) begin_line();
  }
  return lines;
}

}  // namespace standin
