#include "tests/simulation/sim_handles.h"

namespace launcher_stub::sim {
namespace {

constexpr std::uint64_t firstValue = 0x40;
constexpr std::uint64_t valueStep = 4;  // as on Windows

}  // namespace

std::uint64_t HandleTable::valueOf(void* handle) { return reinterpret_cast<std::uintptr_t>(handle); }

void* HandleTable::make(HandleKind kind, int object, int run) {
  HandleEntry entry;
  entry.kind = kind;
  entry.object = object;
  entry.run = run;
  open_.insert(entries_.size());
  entries_.push_back(entry);
  return handleOf(entries_.back());
}

void* HandleTable::handleOf(const HandleEntry& entry) const {
  const auto index = static_cast<std::uintptr_t>(&entry - entries_.data());
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number in the clothes of a pointer
  return reinterpret_cast<void*>(firstValue + index * valueStep);
}

HandleEntry* HandleTable::find(void* handle) {
  const std::uint64_t value = valueOf(handle);
  if (value < firstValue || (value - firstValue) % valueStep != 0) return nullptr;
  const std::uint64_t index = (value - firstValue) / valueStep;
  return index < entries_.size() ? &entries_[index] : nullptr;
}

HandleEntry* HandleTable::findOpen(void* handle, HandleKind kind) {
  HandleEntry* entry = find(handle);
  return entry != nullptr && entry->open && entry->kind == kind ? entry : nullptr;
}

std::vector<HandleEntry*> HandleTable::openHandles(int run) {
  std::vector<HandleEntry*> open;
  for (const std::size_t index : open_) {
    if (entries_[index].run == run) open.push_back(&entries_[index]);
  }
  return open;
}

void HandleTable::close(HandleEntry& entry) {
  entry.open = false;
  open_.erase(static_cast<std::size_t>(&entry - entries_.data()));
}

std::string HandleTable::describe(const HandleEntry& entry) {
  const char* const kinds[] = {"file", "process", "job"};
  return std::string(kinds[static_cast<int>(entry.kind)]) + " " + std::to_string(entry.object);
}

}  // namespace launcher_stub::sim
