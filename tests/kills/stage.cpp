#include "tests/kills/stage.h"

#include <windows.h>

#include <mutex>

namespace end_to_end::kills {
namespace {

// One after the other: the harness counts the directories of this process.
std::unique_ptr<Installation> install() {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  return std::make_unique<Installation>();
}

void remove(const std::wstring& path) { DeleteFileW(path.c_str()); }

void forgetEarlierLives(const Installation& installation) {
  for (const std::wstring& name : listDirectory(installation.stateRoot())) {
    const bool isDocument = name.starts_with(L"boot-v1") || name.starts_with(L"pending-v1");
    if (isDocument) remove(installation.inRoot(name));
  }
  removeTree(installation.inRoot(L"attempts"));
  remove(installation.directory() + L"\\" + finishFile);
}

void layOutRuntime(Installation& installation, const Acts& acts, const std::string& slot, bool grandchild) {
  for (const wchar_t* name : {L"\\starts.txt", L"\\runtime.log"}) remove(installation.slotDirectory(slot) + name);
  installation.writeBeside(slot, L"script.txt", "log runtime.log\n" + scriptOf(acts, slot, grandchild));
}

void layOutWorld(Installation& installation, const World& world) {
  if (!world.bootText().empty()) installation.writeState(world.bootText());
  if (world.previous) installation.writePreviousState(world.previousText());
  if (world.requestFor) installation.writePending(world.requestText());
  for (std::size_t i = 0; i < world.attempts.size(); ++i) {
    const std::string name = "attempt-" + std::to_string(1000 + i);
    const std::wstring directory = installation.inRoot(L"attempts\\" + toWide(name));
    createDirectories(directory);
    writeFile(directory + L"\\boot-v1.json",
              R"({"nonce":")" + name + R"(","schemaVersion":1,"slot":"aaaa","startedAt":1})");
  }
}

}  // namespace

Stage::Stage() : grown_(install()), bare_(install()) {
  for (Installation* one : {grown_.get(), bare_.get()}) one->installSeed("");
  for (const std::string& slot : {activeSlot, candidateSlot, previousSlot}) grown_->installSlot(slot, "");
}

Installation& Stage::layOut(const Kind& kind, bool grandchild) {
  Installation& installation = kind.newRoot ? *bare_ : *grown_;
  forgetEarlierLives(installation);
  if (kind.newRoot) removeTree(installation.stateRoot());
  layOutRuntime(installation, kind.acts, seedSlot, grandchild);
  if (!kind.newRoot) {
    for (const std::string& slot : {activeSlot, candidateSlot, previousSlot}) {
      layOutRuntime(installation, kind.acts, slot, grandchild);
    }
  }
  layOutWorld(installation, kind.world);
  return installation;
}

}  // namespace end_to_end::kills
