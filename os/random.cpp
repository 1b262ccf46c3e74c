#include "os/random.h"

#include <windows.h>

#include <array>
#include <cstdint>

namespace launcher_stub::os {
namespace {

using RandomSource = BOOLEAN(WINAPI*)(void* bytes, ULONG count);

// RtlGenRandom, by the name under which it is exported. Looked up and not imported: it lives in a library that the
// loader would look for in our own folder first, before any code of ours has run.
RandomSource findRandomSource() {
  const HMODULE library = GetModuleHandleW(L"advapi32.dll");  // imported by others
  if (library == nullptr) return nullptr;
  return reinterpret_cast<RandomSource>(reinterpret_cast<void*>(GetProcAddress(library, "SystemFunction036")));
}

RandomSource randomSource = nullptr;  // looked up once

}  // namespace

std::string randomHexDigits() {
  constexpr char digits[] = "0123456789abcdef";
  if (randomSource == nullptr) randomSource = findRandomSource();
  std::array<std::uint8_t, 16> bytes{};
  if (randomSource == nullptr || !randomSource(bytes.data(), static_cast<ULONG>(bytes.size()))) throw NoRandomness();

  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

}  // namespace launcher_stub::os
