#include <algorithm>

#include "os/child_environment.h"
#include "tests/fuzz/byte_source.h"
#include "tests/fuzz/fuzz_targets.h"

namespace launcher_stub::fuzz {
namespace {

using Entries = std::vector<std::wstring>;

// As far as ASCII goes, the system's order.
bool comesBefore(std::wstring_view a, std::wstring_view b) {
  const auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 32) : c; };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [&](wchar_t x, wchar_t y) { return upper(x) < upper(y); });
}

// What a system's block can hold: every entry ends in a zero, and an empty one ends the block.
std::wstring blockOf(std::string_view bytes) {
  std::wstring block;
  for (const char byte : bytes) block += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  return block.append(2, L'\0');
}

void run(std::string_view bytes) {
  const Entries added = {L"QUORVEX_BOOT_STATE_ROOT=C:\\s", L"QUORVEX_BOOT_ATTEMPT_DIR=C:\\a", L"QUORVEX_BOOT_LEASE=42",
                         L"QUORVEX_BOOT_INSTALL_DIR=C:\\i"};
  const Entries inherited = os::splitEnvironmentBlock(blockOf(bytes).c_str());
  for (const std::wstring& entry : inherited) require(!entry.empty(), "no inherited entry is empty");

  const std::wstring block = os::composeEnvironmentBlock(inherited, added, comesBefore);
  const Entries entries = os::splitEnvironmentBlock(block.c_str());

  std::size_t length = 1;
  for (const std::wstring& entry : entries) length += entry.size() + 1;
  require(block.size() == length, "nothing lies behind the block's end");
  require(std::ranges::is_sorted(entries, comesBefore, os::entryName), "entries are sorted by name");
  for (const std::wstring& entry : added)
    require(std::ranges::count(entries, entry) == 1, "what is added is there once");

  Entries expected = inherited;
  std::erase_if(expected, os::isReservedEntry);
  std::ranges::stable_sort(expected, comesBefore, os::entryName);
  Entries kept = entries;
  std::erase_if(kept, os::isReservedEntry);
  require(kept == expected, "what is inherited and not reserved stays, in its order among equal names");
  require(entries.size() == kept.size() + added.size(), "nothing reserved is inherited");
}

const Registration registered({"environment", run});

}  // namespace
}  // namespace launcher_stub::fuzz
