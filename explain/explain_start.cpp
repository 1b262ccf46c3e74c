#include "explain/explain_start.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "explain/attempts.h"
#include "explain/documents.h"
#include "explain/refusals.h"
#include "explain/slots_in_choice.h"
#include "launcher/bootstrap_file.h"
#include "launcher/messages.h"
#include "launcher/start_input.h"
#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "os/state_root.h"
#include "os/text.h"
#include "slots/file_names.h"
#include "slots/install_layout.h"
#include "state/names.h"

namespace launcher_stub::explain {
namespace {

constexpr int mostLooks = 3;  // at documents that somebody else is changing

// The documents that a running launcher and its runtime change.
std::vector<std::string> changingDocuments(const std::wstring& stateRoot) {
  std::vector<std::string> texts;
  for (const std::wstring_view name : {files::bootState, files::previousBootState, files::pendingRequest}) {
    (void)os::readStateFile(os::joinPath(stateRoot, name), texts.emplace_back());  // a failure leaves it empty
  }
  return texts;
}

// None: it lies on another machine, and `error` says so.
std::optional<std::wstring> stateRootOf(const Question& question, const Bootstrap& bootstrap, std::string& error) {
  if (question.stateRoot) return question.stateRoot;
  if (question.looksAtCopies) {
    if (bootstrap.stateRoot.empty()) {
      error = std::string(refusals::rootIsDefault).append(refusals::nameRoot);
      return std::nullopt;
    }
    if (os::isAbsolutePath(os::toWide(bootstrap.stateRoot))) {
      error = std::string(refusals::rootOnOtherMachine).append(bootstrap.stateRoot).append(refusals::nameRoot);
      return std::nullopt;
    }
  }
  return os::resolveStateRoot(question.installDirectory, bootstrap.stateRoot);
}

RootFrom rootFromOf(const Question& question, const Bootstrap& bootstrap) {
  if (question.stateRoot) return RootFrom::argument;
  return bootstrap.stateRoot.empty() ? RootFrom::localData : RootFrom::bootstrap;
}

// As far as it can be told by looking: the launcher would be able to make the directory, or has it already. Whether its
// access list and its owner are right is not looked at.
bool directoryCanBeHad(const std::wstring& path) {
  if (path.empty()) return false;
  const os::PathStatus status = os::pathStatus(path);
  if (status != os::PathStatus::missing) return status == os::PathStatus::directory;
  const std::wstring parent = os::parentPath(path);
  if (parent.empty()) return true;
  return os::pathIsMissing(parent) ? directoryCanBeHad(parent) : os::pathStatus(parent) == os::PathStatus::directory;
}

bool stateRootCanBeHad(const std::wstring& stateRoot) {
  return directoryCanBeHad(stateRoot) && directoryCanBeHad(os::joinPath(stateRoot, files::attempts)) &&
         directoryCanBeHad(os::joinPath(stateRoot, files::slots));
}

DecidedStart decide(const std::wstring& stateRoot, const InstallLayout& layout, bool bootstrapUnderstood) {
  DecidedStart start;
  start.bootstrapUnderstood = bootstrapUnderstood;
  start.input = gatherStartInput(stateRoot, layout.seedEntryPath, bootstrapUnderstood, {});
  start.model = decideStart(start.input, start.findings);
  return start;
}

StateFrom stateFromOf(const StartInput& input) {
  if (input.primary) return StateFrom::current;
  if (input.backup) return StateFrom::previous;
  return input.firstRun ? StateFrom::firstRun : StateFrom::unreadable;
}

// What the launcher would say when it starts nothing.
std::string messageOf(const LauncherModel& model) {
  for (const TransitionEffect& effect : model.effects) {
    if (effect.kind == EffectKind::ReportError) return std::get<std::string>(effect.record);
  }
  return {};
}

bool storesState(const LauncherModel& model) {
  return std::ranges::any_of(model.effects,
                             [](const TransitionEffect& effect) { return effect.kind == EffectKind::WriteBootState; });
}

void tellChoice(const DecidedStart& start, Findings& findings) {
  const LauncherModel& model = start.model;
  findings.startsSomething = model.selected.has_value();
  findings.message = messageOf(model);
  if (model.selected) {
    findings.slot = *model.selected;
    findings.kind = static_cast<RuntimeKind>(model.selectedKind);
    if (model.selectedKind == kindCandidate) findings.candidateStart = model.state.attemptCount;
  }
  findings.requestGeneration = start.findings.requestGeneration;
  const bool stored = storedState(start.input) != nullptr && !endsAtLastGeneration(start);
  if (stored || storesState(model)) findings.generationAfterStart = model.state.generation;
}

// Without a state root the launcher ends before it has decided anything.
void tellOfNoRoot(Findings& findings) {
  findings.startsSomething = false;
  findings.message = messages::cannotCreateStateRoot;
  findings.requestGeneration.reset();
  findings.generationAfterStart.reset();
  for (SlotFinding& slot : findings.slots) slot.standing = Standing::rootCannotBeHad;
  if (findings.request.standing != RequestStanding::none) {
    findings.request.standing = RequestStanding::rootCannotBeHad;
  }
  findings.request.removed = false;
}

void tellOfDeliveries(const std::wstring& stateRoot, Findings& findings, std::vector<std::string>& named) {
  for (const SlotFinding& slot : findings.slots) named.push_back(slot.slot);
  if (findings.request.request) named.push_back(findings.request.request->candidate);
  std::vector<std::string> seen = {std::string(seedSlotName)};
  for (const std::string& slot : named) {
    if (std::ranges::find(seen, slot) != seen.end()) continue;
    seen.push_back(slot);
    findings.documents.push_back(lookAtDelivery(stateRoot, slot));
  }
}

void lookOnce(const InstallLayout& layout, Findings& findings) {
  const std::wstring& stateRoot = findings.stateRoot;
  findings.documents = lookAtDocuments(layout, stateRoot);
  const std::wstring requestPath = os::joinPath(stateRoot, files::pendingRequest);
  const auto pending = std::ranges::find(findings.documents, requestPath, &DocumentFinding::path);
  const DecidedStart start = decide(stateRoot, layout, findings.bootstrapUnderstood);
  const BootState* state = storedState(start.input);
  findings.state = state == nullptr ? std::nullopt : std::optional<BootState>(*state);
  findings.stateFrom = stateFromOf(start.input);
  findings.slots = slotsInChoice(stateRoot, start);
  findings.request = requestInChoice(start, pending->condition);
  tellChoice(start, findings);
  if (!stateRootCanBeHad(stateRoot)) tellOfNoRoot(findings);
}

}  // namespace

std::optional<Findings> explainStart(const Question& question, std::string& error) {
  const InstallLayout layout = buildInstallLayout(question.installDirectory);
  const std::optional<Bootstrap> bootstrap = loadBootstrap(layout, error);
  if (!bootstrap) return std::nullopt;
  std::optional<std::wstring> stateRoot = stateRootOf(question, *bootstrap, error);
  if (!stateRoot) return std::nullopt;

  Findings findings;
  findings.installDirectory = question.installDirectory;
  findings.stateRoot = std::move(*stateRoot);
  findings.rootFrom = rootFromOf(question, *bootstrap);
  findings.bootstrapUnderstood = bootstrap->understood;
  if (findings.stateRoot.empty()) {
    findings.slots.push_back({kindSeed, std::string(seedSlotName), Standing::rootCannotBeHad, false, false});
    tellOfNoRoot(findings);
    return findings;
  }
  findings.rootIsThere = os::pathStatus(findings.stateRoot) == os::PathStatus::directory;
  findings.changedMeanwhile = true;
  for (int look = 0; look < mostLooks && findings.changedMeanwhile; ++look) {
    const std::vector<std::string> before = changingDocuments(findings.stateRoot);
    lookOnce(layout, findings);
    findings.changedMeanwhile = before != changingDocuments(findings.stateRoot);
  }

  std::vector<std::string> named;
  tellOfDeliveries(findings.stateRoot, findings, named);
  findings.unnamed = unnamedSlots(findings.stateRoot, named, findings.state.value_or(BootState{}));
  std::optional<std::string> requestId;
  if (findings.request.request) requestId = findings.request.request->requestId;
  findings.attempts = lookAtAttempts(findings.stateRoot, findings.state, requestId);
  return findings;
}

}  // namespace launcher_stub::explain
