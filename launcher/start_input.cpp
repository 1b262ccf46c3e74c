#include "launcher/start_input.h"

#include <optional>
#include <utility>

#include "launcher/generation_probe.h"
#include "launcher/pending_file.h"
#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"

namespace launcher_stub {
namespace {

void readBootStateFile(const std::wstring& path, std::optional<BootState>& state) {
  std::string document;
  std::string error;
  if (!os::readStateFile(path, document) || !readBootState(document, state.emplace(), error)) state.reset();
}

void readStoredState(const std::wstring& stateRoot, StartInput& input) {
  readBootStateFile(os::joinPath(stateRoot, files::bootState), input.primary);
  if (!input.primary) readBootStateFile(os::joinPath(stateRoot, files::previousBootState), input.backup);
}

void readRequest(const std::wstring& stateRoot, bool bootstrapUnderstood, StartInput& input) {
  if (!bootstrapUnderstood) return;
  FoundPending found = readPendingFile(stateRoot);
  input.candidateTrialAllowed = !found.unsupportedMajor;
  input.pending = std::move(found.request);
}

void findRunnableSlots(const std::wstring& stateRoot, const std::wstring& seedEntryPath, ForeignDeliveryReport report,
                       StartInput& input) {
  const PendingRequest* pending = input.pending ? &*input.pending : nullptr;
  CheckedSlots checked = checkSlots(stateRoot, seedEntryPath, storedState(input), pending, report);
  input.runnableSlots = std::move(checked.usable);
  input.exempt = std::move(checked.ignored);
  // Nothing comes after the seed, so one that cannot be looked at is still tried.
  input.seedRunnable = !os::pathIsMissing(seedEntryPath);
}

// What can still be said of a "boot-v1.json" that gave no state.
void probeStoredFiles(const std::wstring& stateRoot, StartInput& input) {
  if (input.primary) return;
  const std::wstring primary = os::joinPath(stateRoot, files::bootState);
  const std::wstring backup = os::joinPath(stateRoot, files::previousBootState);
  input.generationFloor = probeGeneration(primary);
  input.firstRun = os::pathIsMissing(primary) && os::pathIsMissing(backup);
}

}  // namespace

StartInput gatherStartInput(const std::wstring& stateRoot, const std::wstring& seedEntryPath, bool bootstrapUnderstood,
                            const StartChores& chores) {
  StartInput input;
  readStoredState(stateRoot, input);
  readRequest(stateRoot, bootstrapUnderstood, input);
  if (chores.beforeSlots != nullptr) chores.beforeSlots(stateRoot, input);
  findRunnableSlots(stateRoot, seedEntryPath, chores.foreignDelivery, input);
  probeStoredFiles(stateRoot, input);
  return input;
}

}  // namespace launcher_stub
