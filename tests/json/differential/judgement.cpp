#include "tests/json/differential/judgement.h"

#include <algorithm>
#include <utility>

#include "json/parser.h"

namespace launcher_stub::differential {

Judgement judgeByOurs(std::string_view document) {
  Judgement judgement;
  judgement.accepted = parseJsonDocument(document.data(), document.size(), judgement.value, judgement.error);
  return judgement;
}

void ValueBuilder::noteDepth() { judgement_.deepest = std::max(judgement_.deepest, static_cast<int>(open_.size())); }

bool ValueBuilder::add(JsonValue value) {
  noteDepth();
  if (open_.empty()) {
    judgement_.value = std::move(value);
  } else if (Container& container = open_.back(); !container.hasKey) {
    container.elements.push_back(std::move(value));
  } else if (!container.members.try_emplace(container.key, std::move(value))) {
    judgement_.repeatsKey = true;
  }
  return true;
}

bool ValueBuilder::begin() {
  noteDepth();
  open_.emplace_back();
  return true;
}

bool ValueBuilder::key(std::string_view key) {
  open_.back().key = key;
  open_.back().hasKey = true;
  return true;
}

bool ValueBuilder::endArray() {
  JsonArray elements = std::move(open_.back().elements);
  open_.pop_back();
  return add(JsonValue(std::move(elements)));
}

bool ValueBuilder::endObject() {
  JsonObject members = std::move(open_.back().members);
  open_.pop_back();
  return add(JsonValue(std::move(members)));
}

}  // namespace launcher_stub::differential
