#include "explain/json_report.h"

#include <utility>

#include "explain/path_text.h"
#include "explain/wording.h"
#include "json/parser.h"
#include "json/value.h"
#include "json/writer.h"
#include "state/document.h"

namespace launcher_stub::explain {
namespace {

JsonValue text(std::string_view value) { return JsonValue(JsonText(value)); }
JsonValue path(const std::wstring& value) { return text(pathText(value)); }
JsonValue orNull(const std::optional<std::uint64_t>& number) { return number ? unsignedNumber(*number) : JsonValue(); }

JsonObject slotObject(const std::string& slot) { return {{JsonText(std::string_view("slot")), text(slot)}}; }

JsonValue startOf(const Findings& findings) {
  if (!findings.startsSomething) return {};
  JsonObject start = slotObject(findings.slot);
  start.try_emplace("kind", text(kindName(findings.kind)));
  if (findings.kind == kindCandidate) start.try_emplace("candidateStart", unsignedNumber(findings.candidateStart));
  return JsonValue(std::move(start));
}

JsonValue slotsOf(const Findings& findings) {
  JsonArray slots;
  for (const SlotFinding& slot : findings.slots) {
    JsonObject members = slotObject(slot.slot);
    members.try_emplace("kind", text(kindName(slot.kind)));
    members.try_emplace("standing", text(wordingOf(slot.standing).code));
    if (slot.standing == Standing::incomplete) {
      members.try_emplace("markerMissing", slot.markerMissing);
      members.try_emplace("entryMissing", slot.entryMissing);
    }
    slots.emplace_back(std::move(members));
  }
  return JsonValue(std::move(slots));
}

JsonValue unnamedOf(const Findings& findings) {
  JsonArray slots;
  for (const UnnamedSlot& slot : findings.unnamed) {
    JsonObject members = slotObject(slot.slot);
    members.try_emplace("complete", slot.complete);
    members.try_emplace("rejected", slot.rejected);
    slots.emplace_back(std::move(members));
  }
  return JsonValue(std::move(slots));
}

JsonValue requestOf(const RequestFinding& request) {
  JsonObject members;
  members.try_emplace("standing", text(wordingOf(request.standing).code));
  members.try_emplace("namesActive", request.namesActive);
  members.try_emplace("removed", request.removed);
  if (request.request) {
    members.try_emplace("requestId", text(request.request->requestId));
    members.try_emplace("candidate", text(request.request->candidate));
    members.try_emplace("expectedGeneration", unsignedNumber(request.request->expectedGeneration));
  }
  return JsonValue(std::move(members));
}

// In the very form of "boot-v1.json".
JsonValue stateOf(const Findings& findings) {
  JsonValue value;
  if (!findings.state) return value;
  const std::string document = writeBootState(*findings.state);
  std::string error;
  (void)parseJsonDocument(document.data(), document.size(), value, error);  // cannot fail: it has just been written
  return value;
}

void addCondition(JsonObject& members, const DocumentFinding& document) {
  members.try_emplace("condition", text(wordingOf(document.condition).code));
  if (!document.error.empty()) members.try_emplace("error", text(document.error));
}

JsonValue documentsOf(const Findings& findings) {
  JsonArray documents;
  for (const DocumentFinding& document : findings.documents) {
    JsonObject members;
    members.try_emplace("name", text(document.name));
    members.try_emplace("path", path(document.path));
    addCondition(members, document);
    documents.emplace_back(std::move(members));
  }
  return JsonValue(std::move(documents));
}

JsonValue markOf(std::string_view code, const std::string& error) {
  JsonObject members;
  members.try_emplace("standing", text(code));
  if (!error.empty()) members.try_emplace("error", text(error));
  return JsonValue(std::move(members));
}

JsonValue attemptsOf(const Findings& findings) {
  JsonArray attempts;
  for (const AttemptFinding& attempt : findings.attempts) {
    JsonObject members;
    members.try_emplace("name", path(attempt.name));
    addCondition(members, attempt.record);
    if (attempt.record.condition == Condition::valid) {
      members.try_emplace("slot", text(attempt.slot));
      members.try_emplace("ready", markOf(wordingOf(attempt.ready.standing).code, attempt.ready.error));
      members.try_emplace("healthy", markOf(wordingOf(attempt.healthy.standing).code, attempt.healthy.error));
      members.try_emplace("restart", markOf(wordingOf(attempt.restart.standing).code, attempt.restart.error));
    }
    attempts.emplace_back(std::move(members));
  }
  return JsonValue(std::move(attempts));
}

JsonValue programsOf(const Findings& findings) {
  if (!findings.programs) return {};
  JsonArray programs;
  for (const ProgramFinding& program : *findings.programs) {
    JsonObject members;
    members.try_emplace("processId", unsignedNumber(program.processId));
    members.try_emplace("path", path(program.path));
    programs.emplace_back(std::move(members));
  }
  return JsonValue(std::move(programs));
}

}  // namespace

std::string jsonReport(const Findings& findings) {
  JsonObject report = newDocument();
  report.try_emplace("installDirectory", path(findings.installDirectory));
  report.try_emplace("stateRoot", path(findings.stateRoot));
  report.try_emplace("stateRootFrom", text(wordingOf(findings.rootFrom).code));
  report.try_emplace("stateRootIsThere", findings.rootIsThere);
  report.try_emplace("bootstrapUnderstood", findings.bootstrapUnderstood);
  report.try_emplace("start", startOf(findings));
  if (!findings.startsSomething) report.try_emplace("message", text(findings.message));
  report.try_emplace("slots", slotsOf(findings));
  report.try_emplace("unnamedSlots", unnamedOf(findings));
  report.try_emplace("requestGeneration", orNull(findings.requestGeneration));
  report.try_emplace("generationAfterStart", orNull(findings.generationAfterStart));
  report.try_emplace("request", requestOf(findings.request));
  report.try_emplace("state", stateOf(findings));
  report.try_emplace("stateFrom", text(wordingOf(findings.stateFrom).code));
  report.try_emplace("documents", documentsOf(findings));
  report.try_emplace("attempts", attemptsOf(findings));
  report.try_emplace("changedMeanwhile", findings.changedMeanwhile);
  report.try_emplace("programs", programsOf(findings));
  return toJsonText(JsonValue(std::move(report))) + "\n";
}

}  // namespace launcher_stub::explain
