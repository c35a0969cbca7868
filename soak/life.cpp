// Drawing results, and comparing what comes of them.

#include "soak/life.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>

#include "soak/script.h"

namespace soak {
namespace {

using standin::Token;
using stream_model::Value;

constexpr uint32_t kScripts = 256;

// A value that no walk gets past, as the last one of a dictionary; and how many of the tokens that it would have, and
// those behind it, are missing for that.
struct Obstacle {
  Value value;
  size_t missing;
};
const Obstacle kObstacles[] = {
    {{standin::kTrue, "None", ""}, 2},
    {{standin::kTrue, "(1, 2)", ""}, 2},
    {{standin::kTrue, "'\\ud800'", ""}, 2},
    {{standin::kDictStart, "{5: 1}", ""}, 2},
    {{standin::kDictStart, "{'\\udfff': 1}", ""}, 2},
    {{standin::kDictStart, "ring", "", {{"r", std::make_shared<Value>(Value{standin::kTrue, "", ""})}}}, 3}};

void Check(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

// The model knows no time.
bool Agree(const Token& token, const Token& expected) {
  return token.type == standin::kNewCollection ? expected.type == token.type && expected.key_id == token.key_id
                                               : token == expected;
}

}  // namespace

Life::Life(const standin::Plugin& plugin, const standin::PythonModule& script, uint32_t seed, uint32_t* next_key,
           Totals* totals)
    : random_(seed), script_(script), next_key_(next_key), totals_(totals), provider_(plugin, ScriptOptions(kScripts)) {
  ids_.next = *next_key;
  provider_.Initialize();
  ++totals_->lives;
}

// About one in 500 ends the life, for lives of all lengths.
Life::Drawn Life::Draw() {
  const uint32_t kind = Below(2048);
  if (kind == 0) return {"result = None", {{standin::kNewCollection, standin::kNoKey}}, Outcome::kSticks};
  if (kind < 32) return {"result = ValueError('meant')", {}, Outcome::kRaises};
  auto result = stream_model::RandomResult([this] { return static_cast<uint32_t>(random_()); });
  if (kind < 1024) return {ToPython(result), Tokens(result, &ids_), Outcome::kComplete};

  // Under a key that has never been met.
  Value outer{standin::kDictStart, "", "", {{"fresh " + std::to_string(ids_.next), result}}};
  const Obstacle* obstacle = kind < 2046 ? nullptr : &kObstacles[Below(std::size(kObstacles))];
  if (obstacle != nullptr) outer.entries.emplace_back("obstacle", std::make_shared<Value>(obstacle->value));
  result = std::make_shared<Value>(std::move(outer));
  Drawn drawn{ToPython(result), Tokens(result, &ids_), Outcome::kComplete};
  // A list in a list may have ended it before.
  if (obstacle != nullptr && drawn.tokens.back() == Token{standin::kDictEnd, standin::kNoKey}) {
    drawn.tokens.resize(drawn.tokens.size() - obstacle->missing);
    drawn.outcome = Outcome::kSticks;
  }
  return drawn;
}

bool Life::Collect() {
  const Drawn drawn = Draw();
  const std::vector<Token>& expected = drawn.tokens;
  script_.Call("compute", drawn.statements);
  const uint32_t odds = 2U << Below(10);  // that a token is refused: one to these
  const size_t leave_at = Below(1024) == 0 ? Below(expected.size() + 1) : expected.size() + 1;
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
      HasForceSync(index) && !expected.empty() ? TEV_PROGRESS_DONE_FORCE_SYNC : TEV_PROGRESS_DONE;
  Check(status == (drawn.outcome == Outcome::kComplete ? done : TEV_PROGRESS_ERROR),
        "status " + std::to_string(status));
  totals_->raised += drawn.outcome == Outcome::kRaises ? 1 : 0;
  if (drawn.outcome != Outcome::kSticks) return true;
  for (int call = 0; call < 5; ++call) Check(progress() == TEV_PROGRESS_ERROR, "a stuck walk has come loose");
  ++totals_->stuck;
  return false;
}

void Life::CheckSources() {
  const std::vector<std::string> tags = provider_.Sources();
  Check(tags.size() == kScripts, "sources: " + std::to_string(tags.size()));
  for (uint32_t index = 0; index < kScripts; ++index) Check(tags[index] == TagOf(index), "tag " + tags[index]);
}

}  // namespace soak
