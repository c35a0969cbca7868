// Finds the place in a result by following the lists and dictionaries that its tokens open.

#include "host/tool/place.h"

#include <cctype>

namespace standin {
namespace {

struct Container {
  bool is_dict;
  size_t items = 0;      // complete ones; in a dictionary also the one whose key was the last key
  std::string key = {};  // the last key
};

std::string KeyStep(const std::string& key) {
  bool plain = !key.empty() && isdigit(static_cast<unsigned char>(key[0])) == 0;
  for (const char c : key) plain = plain && (isalnum(static_cast<unsigned char>(c)) != 0 || c == '_');
  return plain ? "." + key : "[" + Quoted(key) + "]";
}

// Joins the places in the open containers to one text.
std::string Path(const std::vector<Container>& open) {
  std::string path;
  for (const Container& container : open) {
    path += container.is_dict ? KeyStep(container.key) : "[" + std::to_string(container.items) + "]";
  }
  return path.empty() ? "the result" : path.substr(path[0] == '.' ? 1 : 0);
}

}  // namespace

std::string PlaceBehind(const std::vector<Token>& tokens) {
  std::vector<Container> open;
  bool key_came = false;
  for (const Token& token : tokens) {
    if (token.type == kNewCollection) continue;
    if (token.type == kKeyName) {
      if (!open.empty()) open.back().key = token.payload;
      key_came = true;
      continue;
    }
    key_came = false;
    if (token.type == kDictStart || token.type == kListStart) {
      open.push_back({token.type == kDictStart});
      continue;
    }
    if ((token.type == kDictEnd || token.type == kListEnd) && !open.empty()) open.pop_back();
    if (!open.empty()) ++open.back().items;
  }
  if (open.empty() || !open.back().is_dict || key_came) return Path(open);
  if (open.back().items > 0) return "the key behind " + Path(open);
  open.pop_back();
  return "the first key of " + Path(open);
}

}  // namespace standin
