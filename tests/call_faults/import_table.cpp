#include "tests/call_faults/import_table.h"

#include <windows.h>

#include <cstdint>
#include <stdexcept>

// The linker sorts functions by the names of their sections, and those of the launcher all begin alike. So functions
// whose sections sort right before and behind them tell where they lie: members and free functions, constant members,
// and what is local to a function.
#define SECTION(name) __attribute__((section(".text$" name), used, noinline))
SECTION("_ZN13launcher_stub") static void beforeFunctions() { __asm__ volatile(""); }
SECTION("_ZN13launcher_stubz") static void behindFunctions() { __asm__ volatile(" "); }
SECTION("_ZNK13launcher_stub") static void beforeConstants() { __asm__ volatile("  "); }
SECTION("_ZNK13launcher_stubz") static void behindConstants() { __asm__ volatile("   "); }
SECTION("_ZZN13launcher_stub") static void beforeLocals() { __asm__ volatile("    "); }
SECTION("_ZZN13launcher_stubz") static void behindLocals() { __asm__ volatile("     "); }
#undef SECTION

namespace call_faults {
namespace {

std::uint8_t* imageBase() { return reinterpret_cast<std::uint8_t*>(GetModuleHandleW(nullptr)); }

template <typename T>
T* at(std::uint64_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(imageBase()) + offset);
}

const IMAGE_IMPORT_DESCRIPTOR* importDirectory() {
  const auto* dos = at<IMAGE_DOS_HEADER>(0);
  const auto* headers = at<IMAGE_NT_HEADERS>(static_cast<std::uint64_t>(dos->e_lfanew));
  return at<IMAGE_IMPORT_DESCRIPTOR>(
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
}

void write(IMAGE_THUNK_DATA& entry, void* replacement) {
  DWORD before = 0;
  if (!VirtualProtect(&entry, sizeof entry, PAGE_READWRITE, &before)) throw std::runtime_error("VirtualProtect");
  entry.u1.Function = reinterpret_cast<std::uintptr_t>(replacement);
  VirtualProtect(&entry, sizeof entry, before, &before);
}

using Mark = void (*)();

bool liesBetween(const void* address, Mark before, Mark behind) {
  const auto place = reinterpret_cast<std::uintptr_t>(address);
  return place > reinterpret_cast<std::uintptr_t>(before) && place < reinterpret_cast<std::uintptr_t>(behind);
}

}  // namespace

namespace {

template <typename Visit>
void visitImports(std::string_view name, Visit visit) {
  for (const auto* library = importDirectory(); library->Name != 0; ++library) {
    const auto* names = at<IMAGE_THUNK_DATA>(library->OriginalFirstThunk);
    auto* entries = at<IMAGE_THUNK_DATA>(library->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++entries) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      const auto* entry = at<IMAGE_IMPORT_BY_NAME>(names->u1.AddressOfData);
      if (name == reinterpret_cast<const char*>(entry->Name)) visit(*entries);
    }
  }
}

}  // namespace

void* importedFunction(std::string_view name) {
  void* found = nullptr;
  visitImports(name, [&](const IMAGE_THUNK_DATA& entry) { found = reinterpret_cast<void*>(entry.u1.Function); });
  return found;
}

void replaceImport(std::string_view name, void* replacement) {
  visitImports(name, [&](IMAGE_THUNK_DATA& entry) { write(entry, replacement); });
}

bool isLauncherCode(const void* address) {
  return liesBetween(address, beforeFunctions, behindFunctions) ||
         liesBetween(address, beforeConstants, behindConstants) || liesBetween(address, beforeLocals, behindLocals);
}

}  // namespace call_faults
