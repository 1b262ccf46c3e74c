#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "tests/call_faults/sweep_options.h"
#include "tests/call_faults/text.h"

namespace call_faults {

namespace {

struct Options {
  bool all = false;
  std::string only;
} options;

// In a run that does not try all: of the faults with the first error of their function one in so many, besides each
// error of each function where it is met first.
constexpr std::uint32_t oneOf = 48;

std::mutex tryingMutex;
std::string trying;
DWORD tryingSince = 0;

[[noreturn]] void watchForHangs() {
  constexpr DWORD longestLaunchMs = 120'000;
  for (;;) {
    Sleep(1000);
    const std::lock_guard guard(tryingMutex);
    if (trying.empty() || GetTickCount() - tryingSince < longestLaunchMs) continue;
    std::printf("hangs: %s\n", trying.c_str());
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 4);
  }
}

// FNV-1a: the same in every run and on every machine.
std::uint32_t digest(std::string_view text) {
  std::uint32_t value = 2166136261u;
  for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 16777619u;
  return value;
}

bool isNeeded(std::wstring_view name) {
  for (const wchar_t* needed : {L"SYSTEMROOT", L"WINDIR", L"TEMP", L"TMP", L"PATH"}) {
    if (_wcsicmp(std::wstring(name).c_str(), needed) == 0) return true;
  }
  return name.empty() || name.starts_with(L"GTEST_");
}

}  // namespace

void shrinkEnvironment() {
  wchar_t* block = GetEnvironmentStringsW();
  for (const wchar_t* entry = block; *entry != 0; entry += std::wstring_view(entry).size() + 1) {
    const std::wstring name(std::wstring_view(entry).substr(0, std::wstring_view(entry).find(L'=')));
    if (!isNeeded(name)) SetEnvironmentVariableW(name.c_str(), nullptr);
  }
  FreeEnvironmentStringsW(block);
}

void readOptions(int& count, wchar_t** arguments) {
  int kept = 1;
  for (int index = 1; index < count; ++index) {
    const std::wstring argument = arguments[index];
    if (argument == L"--all") {
      options.all = true;
    } else if (argument == L"--only" && index + 1 < count) {
      options.only = toUtf8(arguments[++index]);
    } else {
      arguments[kept++] = arguments[index];
    }
  }
  count = kept;
}

bool isChosen(const std::string& kind, const Fault& fault, bool isFirst) {
  const std::string name = kind + ": " + describe(fault);
  if (!options.only.empty()) return name.find(options.only) != std::string::npos;
  if (options.all) return true;
  static std::set<std::tuple<std::string_view, DWORD, Way>> met;
  const bool isNew = !fault.lasting && met.insert({fault.function, fault.refusal.code, fault.refusal.way}).second;
  return isNew || (isFirst && digest(name) % oneOf == 0);
}

void nowTrying(const std::string& kind, const Fault& fault) {
  const std::lock_guard guard(tryingMutex);
  trying = kind + ": " + describe(fault);
  tryingSince = GetTickCount();
}

}  // namespace call_faults

extern "C" int wmain(int count, wchar_t** arguments);

extern "C" int wmain(int count, wchar_t** arguments) {
  call_faults::readOptions(count, arguments);
  call_faults::shrinkEnvironment();
  std::setvbuf(stdout, nullptr, _IONBF, 0);  // what was said before a hang or a crash is wanted
  testing::InitGoogleTest(&count, arguments);
  call_faults::addWhatComesBeforeAllLaunches();
  std::thread(call_faults::watchForHangs).detach();
  const int result = RUN_ALL_TESTS();
  call_faults::printFigures();
  return result;
}
