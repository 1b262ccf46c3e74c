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

void Texts::note(std::string_view text) {
  longest = std::max(longest, text.size());
  for (std::size_t at = text.find('\xED'); at != text.npos; at = text.find('\xED', at + 1)) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) holdSurrogate = true;
  }
}

void ValueBuilder::noteDepth() { judgement_.deepest = std::max(judgement_.deepest, static_cast<int>(open_.size())); }

bool ValueBuilder::add(JsonValue value) {
  noteDepth();
  if (value.string() != nullptr) judgement_.strings.note(*value.string());
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
  judgement_.keys.note(key);
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
