// Draws the scripts' results, and compares each token with the model's.

#include "soak/life.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <vector>

namespace soak {
namespace {

using standin::Token;

constexpr uint32_t kScripts = 256;

// True for every second script. These ask for a forced synchronisation and get their tags from an option.
bool IsSecond(uint32_t index) { return index % 2 == 1; }

// Of four lives in a row, each has another combination of release-lock and log-output.
standin::OptionList ScriptOptions(uint32_t seed, bool tolerant) {
  standin::OptionList options{{"enable-provider", "python"},
                              {"python-import-num-scripts", std::to_string(kScripts)},
                              {"python-import-file", RUBRUF_SOURCE_DIR "/soak/results.py"},
                              {"python-import-arg-kept", "text"}};
  if (tolerant) options.emplace_back("python-import-tolerant", "true");
  for (uint32_t index = 1; index < kScripts; index += 2) {
    const std::string prefix = "python-import-" + std::to_string(index + 1);
    options.emplace_back(prefix + "-force-sync", "true");
    options.emplace_back(prefix + "-tag", std::to_string(index));
  }
  if (seed % 2 == 1) options.emplace_back("python-import-release-lock", "true");
  if (seed % 4 < 2) options.emplace_back("python-import-log-output", "true");
  return options;
}

void Check(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

// Equal tokens; the time stamps may differ, because the model has none.
bool Agree(const Token& token, const Token& expected) {
  return token.type == standin::kNewCollection ? expected.type == token.type && expected.key_id == token.key_id
                                               : token == expected;
}

}  // namespace

standin::PythonModule LoadScript(const standin::Plugin& plugin) {
  std::ifstream file(RUBRUF_SOURCE_DIR "/soak/results.py");
  const std::string source{std::istreambuf_iterator<char>(file), {}};
  // All scripts import the module by this name, so all of them share this one.
  return standin::PythonModule(plugin, {{"results", source.c_str()}});
}

Life::Life(const standin::Plugin& plugin, const standin::PythonModule& script, uint32_t seed, uint32_t* next_key,
           Totals* totals)
    : random_(seed),
      tolerant_(seed % 3 == 2),
      script_(script),
      next_key_(next_key),
      totals_(totals),
      provider_(plugin, ScriptOptions(seed, tolerant_)) {
  ids_.next = *next_key;
  provider_.Initialize();
  ++totals_->lives;
}

std::pair<std::string, stream_model::Stream> Life::Draw() {
  const uint32_t kind = Below(2048);
  if (kind == 0 && tolerant_) return {"result = None", {{}, false}};
  if (kind == 0) return {"result = None", {{{standin::kNewCollection, standin::kNoKey}}, false, true}};
  if (kind < 32) return {"result = ValueError('meant')", {{}, false}};
  const auto result = stream_model::RandomResult([this] { return static_cast<uint32_t>(random_()); });
  return {ToPython(result), StreamOf(result, &ids_, tolerant_)};
}

bool Life::Collect() {
  const auto [statements, stream] = Draw();
  const std::vector<Token>& expected = stream.tokens;
  const bool raises = expected.empty() && !stream.complete;
  script_.Call("compute", statements);
  const uint32_t odds = 2U << Below(10);  // one in so many tokens is refused
  const size_t leave_at = Below(256) == 0 ? Below(expected.size() + 1) : expected.size() + 1;
  size_t taken = 0;
  std::optional<Token> unexpected;
  tev_data_serializer_t buffer;
  buffer.refuse = [&](const Token& token) {
    if (taken >= expected.size() || !Agree(token, expected[taken])) unexpected = token;
    if (token.type == standin::kKeyName) *next_key_ = std::max(*next_key_, token.key_id + 1);
    const bool refuses = taken >= leave_at || Below(odds) == 0;
    taken += refuses ? 0 : 1;
    return refuses;
  };

  uint32_t index = 0;
  const auto progress = [&] {
    index = Below(kScripts);
    const tev_progress_status_t status = provider_.Progress(index, &buffer);
    buffer.Drain();
    Check(!unexpected, "token " + std::to_string(taken) + ": " + (unexpected ? ToLine(*unexpected) : "") +
                           " instead of " +
                           (taken < expected.size() ? standin::TypeName(expected[taken].type) : "none"));
    if (Below(2048) == 0) CheckSources();
    return status;
  };
  tev_progress_status_t status = progress();
  for (; status == TEV_PROGRESS_REFUSED && taken < leave_at; status = progress()) ++totals_->refusals;
  ++totals_->collections;
  totals_->tokens += taken;
  if (status == TEV_PROGRESS_REFUSED) {
    ++totals_->left;
    return false;
  }
  Check(taken == expected.size(), "the stream ended at token " + std::to_string(taken));
  const tev_progress_status_t done =
      IsSecond(index) && !expected.empty() ? TEV_PROGRESS_DONE_FORCE_SYNC : TEV_PROGRESS_DONE;
  Check(status == (stream.sticks || raises ? TEV_PROGRESS_ERROR : done), "status " + std::to_string(status));
  totals_->raised += raises ? 1 : 0;
  if (!stream.sticks) return true;
  for (int call = 0; call < 5; ++call) Check(progress() == TEV_PROGRESS_ERROR, "a stuck walk went on");
  ++totals_->stuck;
  return false;
}

void Life::CheckSources() {
  const std::vector<std::string> tags = provider_.Sources();
  Check(tags.size() == kScripts, "sources: " + std::to_string(tags.size()));
  for (uint32_t index = 0; index < kScripts; ++index) {
    Check(tags[index] == (IsSecond(index) ? "dict_" + std::to_string(index) : "dict_soak"), "tag " + tags[index]);
  }
}

}  // namespace soak
