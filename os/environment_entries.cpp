#include <algorithm>

#include "os/child_environment.h"

namespace launcher_stub::os {
namespace {

constexpr std::wstring_view reservedPrefix = L"QUORVEX_BOOT_";

wchar_t asciiUpper(wchar_t character) {
  return character >= L'a' && character <= L'z' ? static_cast<wchar_t>(character - L'a' + L'A') : character;
}

}  // namespace

std::vector<std::wstring> splitEnvironmentBlock(const wchar_t* block) {
  std::vector<std::wstring> entries;
  while (*block != L'\0') {
    entries.emplace_back(block);
    block += entries.back().size() + 1;
  }
  return entries;
}

bool isReservedEntry(std::wstring_view entry) {
  if (entry.size() < reservedPrefix.size()) return false;
  return std::equal(reservedPrefix.begin(), reservedPrefix.end(), entry.begin(),
                    [](wchar_t expected, wchar_t found) { return expected == asciiUpper(found); });
}

std::wstring_view entryName(std::wstring_view entry) {
  return entry.substr(0, entry.find(L'=', 1));  // without a "=" the whole entry is the name
}

std::wstring composeEnvironmentBlock(const std::vector<std::wstring>& inherited, const std::vector<std::wstring>& added,
                                     const NameOrder& comesBefore) {
  // Each entry goes behind all that do not come after it, so the sort is stable: of two names that differ only in case
  // the inherited order decides which one a reader finds first. Not std::stable_sort: the system's comparison has a
  // failure that looks like an order, and an order at odds with itself leads that one beyond the list's ends.
  std::vector<std::wstring> entries;
  const auto insert = [&](const std::wstring& entry) {
    entries.insert(std::upper_bound(entries.begin(), entries.end(), entry,
                                    [&](const std::wstring& a, const std::wstring& b) {
                                      return comesBefore(entryName(a), entryName(b));
                                    }),
                   entry);
  };
  for (const std::wstring& entry : inherited) {
    if (!isReservedEntry(entry)) insert(entry);
  }
  for (const std::wstring& entry : added) insert(entry);

  std::wstring block;
  for (const std::wstring& entry : entries) {
    block += entry;
    block += L'\0';
  }
  block += L'\0';
  return block;
}

}  // namespace launcher_stub::os
