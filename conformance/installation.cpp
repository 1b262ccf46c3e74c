#include "conformance/installation.h"

#include "conformance/platform_files.h"
#include "conformance/platform_processes.h"
#include "json/writer.h"
#include "state/boot_state.h"
#include "state/document.h"

namespace conformance {
namespace {

using launcher_stub::BootState;
using launcher_stub::JsonObject;
using launcher_stub::JsonText;
using launcher_stub::JsonValue;

constexpr std::uint64_t generation = 1;  // as after the launcher's very first start
constexpr std::string_view requestId = "conformance-1";

std::string bootstrapText(const std::wstring& stateRoot) {
  JsonObject members = launcher_stub::newDocument();
  members.try_emplace("installId", JsonText("conformance"));
  members.try_emplace("seedSlot", JsonText("seed"));
  members.try_emplace("stateRoot", JsonText(toUtf8(stateRoot)));
  return launcher_stub::toJsonText(JsonValue(members));
}

std::string pendingText(const std::string& candidate) {
  JsonObject members = launcher_stub::newDocument();
  members.try_emplace("candidate", JsonText(candidate));
  members.try_emplace("expectedGeneration", launcher_stub::unsignedNumber(generation));
  members.try_emplace("requestId", JsonText(requestId));
  return launcher_stub::toJsonText(JsonValue(members));
}

// Runs may follow each other within one process, and processes beside each other.
std::wstring freshName() {
  static int count = 0;
  return L"conformance " + std::to_wstring(thisProcessId()) + L"-" + std::to_wstring(++count);
}

}  // namespace

Installation::Installation(const Options& options)
    : options_(options),
      base_(options.work + L"\\" + freshName()),
      install_(base_ + L"\\program"),
      root_(base_ + L"\\state") {
  removeTree(base_);  // of a process that had the same id and was ended in the middle
}

Installation::~Installation() {
  if (!options_.keep) removeTree(base_);
}

bool Installation::layOut(std::string& problem) {
  return createDirectory(install_, problem) && copyFile(options_.launcher, launcher(), problem) &&
         writeFile(install_ + L"\\bootstrap-v1.json", bootstrapText(root_), problem) &&
         copyTree(options_.seed, slotDirectory("seed"), problem);
}

bool Installation::leaveUpdate(const std::string& slot, std::string& problem) {
  BootState state;
  state.generation = generation;
  return copyTree(options_.seed, slotDirectory(slot), problem) &&
         writeFile(slotDirectory(slot) + L"\\COMPLETE-v1", {}, problem) &&
         writeFile(root_ + L"\\boot-v1.json", launcher_stub::writeBootState(state), problem) &&
         writeFile(root_ + L"\\pending-v1.json", pendingText(slot), problem);
}

std::wstring Installation::slotDirectory(const std::string& slot) const {
  return slot == "seed" ? install_ + L"\\seed" : root_ + L"\\slots\\" + toWide(slot);
}

std::wstring Installation::attemptDirectory(const std::string& nonce) const {
  return root_ + L"\\attempts\\" + toWide(nonce);
}

}  // namespace conformance
