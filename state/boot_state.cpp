#include "state/boot_state.h"

#include <limits>
#include <utility>

#include "json/value.h"
#include "json/writer.h"
#include "state/document.h"
#include "state/messages.h"
#include "state/names.h"

namespace launcher_stub {
namespace {

constexpr const char* generationKey = "generation";
constexpr const char* attemptCountKey = "attemptCount";
constexpr const char* activeKey = "active";
constexpr const char* previousKey = "previous";
constexpr const char* candidateKey = "candidate";
constexpr const char* lastRequestIdKey = "lastRequestId";
constexpr const char* rejectedKey = "rejected";
constexpr const char* recoveredKey = "recovered";

bool readAttemptCount(const JsonObject& members, std::uint64_t& count, std::string& error) {
  if (!readUnsigned(members, attemptCountKey, count, error)) return false;
  if (count > std::numeric_limits<std::uint32_t>::max()) {
    error = messages::attemptCountOverflow;
    return false;
  }
  return true;
}

// All four are read before any of them is checked: a wrong type is reported ahead of a wrong name.
bool readNames(const JsonObject& members, BootState& state, std::string& error) {
  return readOptionalString(members, activeKey, state.active, error) &&
         readOptionalString(members, previousKey, state.previous, error) &&
         readOptionalString(members, candidateKey, state.candidate, error) &&
         readOptionalString(members, lastRequestIdKey, state.lastRequestId, error);
}

bool checkNames(const BootState& state, std::string& error) {
  for (const std::optional<std::string>* slot : {&state.active, &state.previous, &state.candidate}) {
    if (*slot && !isSlotName(**slot)) {
      error = messages::invalidSlot;
      return false;
    }
  }
  if (state.lastRequestId && !isToken(*state.lastRequestId)) {
    error = messages::invalidToken;
    return false;
  }
  return true;
}

// `entries` points into `members`. The entries themselves are not looked at yet.
bool findRejected(const JsonObject& members, const JsonArray*& entries, std::string& error) {
  const JsonValue* member = findMember(members, rejectedKey);
  entries = member == nullptr ? nullptr : member->array();
  if (entries == nullptr || entries->size() > maxRejectedSlots) {
    error = invalidMember(rejectedKey);
    return false;
  }
  return true;
}

bool readRecovered(const JsonObject& members, bool& recovered, std::string& error) {
  recovered = false;
  const JsonValue* member = findMember(members, recoveredKey);
  if (member == nullptr) return true;
  if (member->kind() != JsonKind::Bool) {
    error = invalidMember(recoveredKey);
    return false;
  }
  recovered = *member->boolean();
  return true;
}

bool readRejected(const JsonArray& entries, std::vector<std::string>& rejected, std::string& error) {
  rejected.clear();
  for (const JsonValue& entry : entries) {
    if (entry.kind() != JsonKind::String) {
      error = messages::invalidRejectedSlot;
      return false;
    }
    if (!isSlotName(*entry.string())) {
      error = messages::invalidSlot;
      return false;
    }
    rejected.push_back(*entry.string());
  }
  return true;
}

void addOptionalString(JsonObject& members, const char* key, const std::optional<std::string>& text) {
  if (text) members.try_emplace(key, *text);
}

JsonValue stringArray(const std::vector<std::string>& texts) {
  JsonArray elements;
  for (const std::string& text : texts) elements.emplace_back(text);
  return JsonValue(std::move(elements));
}

}  // namespace

bool readBootState(std::string_view document, BootState& state, std::string& error) {
  JsonValue value;
  if (!checkDocumentHeader(document, value, error)) return false;
  const JsonObject& members = *value.object();
  if (!readUnsigned(members, generationKey, state.generation, error)) return false;
  std::uint64_t attemptCount = 0;
  if (!readAttemptCount(members, attemptCount, error)) return false;
  if (!readNames(members, state, error) || !checkNames(state, error)) return false;
  const JsonArray* rejected = nullptr;
  if (!findRejected(members, rejected, error)) return false;
  state.attemptCount = static_cast<std::uint32_t>(attemptCount);
  if (!readRecovered(members, state.recovered, error)) return false;
  return readRejected(*rejected, state.rejected, error);
}

std::string writeBootState(const BootState& state) {
  JsonObject members = newDocument();
  members.try_emplace(generationKey, unsignedNumber(state.generation));
  members.try_emplace(attemptCountKey, unsignedNumber(state.attemptCount));
  addOptionalString(members, activeKey, state.active);
  addOptionalString(members, previousKey, state.previous);
  addOptionalString(members, candidateKey, state.candidate);
  addOptionalString(members, lastRequestIdKey, state.lastRequestId);
  if (state.recovered) members.try_emplace(recoveredKey, true);
  members.try_emplace(rejectedKey, stringArray(state.rejected));
  return toJsonText(JsonValue(std::move(members)));
}

}  // namespace launcher_stub
