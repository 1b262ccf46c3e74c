// Counts what the supervision does: its sleeps (the only times at which it wakes up by itself) and the files it opens
// or asks for. BENCH_TICKS names the file that gets a line at half of BENCH_FIRST_TICK, at BENCH_FIRST_TICK and at
// BENCH_LAST_TICK: tick, time in microseconds, private bytes, handles, files opened, files asked for. With BENCH_HURRY
// at 1 a sleep takes one millisecond.
//
// The launcher makes these calls through the program's import pointers, which are defined here.

#include <windows.h>

#include <psapi.h>
#include <winternl.h>

#include <cstdio>
#include <cwchar>
#include <vector>

namespace {

unsigned long long ticks = 0;
unsigned long long opened = 0;
unsigned long long askedFor = 0;

template <typename Function>
Function* realCall(const wchar_t* library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(library), name)));
}

unsigned long long numberOf(const wchar_t* variable) {
  wchar_t value[32] = {};
  return GetEnvironmentVariableW(variable, value, 32) != 0 ? std::wcstoull(value, nullptr, 10) : 0;
}

unsigned long long microseconds() {
  LARGE_INTEGER counter{};
  LARGE_INTEGER frequency{};
  QueryPerformanceCounter(&counter);
  QueryPerformanceFrequency(&frequency);
  return static_cast<unsigned long long>(counter.QuadPart / (frequency.QuadPart / 1'000'000));
}

unsigned long long privateBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  const auto query = realCall<decltype(::GetProcessMemoryInfo)>(L"kernel32", "K32GetProcessMemoryInfo");
  query(GetCurrentProcess(), &counters, sizeof counters);
  return counters.PagefileUsage;  // the same as PrivateUsage, which Wine leaves at 0
}

// One entry of the system's list of all handles. GetProcessHandleCount says 0 under Wine.
struct SystemHandle {
  USHORT processId, traceIndex;
  UCHAR type, flags;
  USHORT value;
  void* object;
  ULONG access;
};

unsigned long long ownHandles() {
  constexpr auto systemHandles = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  const auto query = realCall<decltype(::NtQuerySystemInformation)>(L"ntdll", "NtQuerySystemInformation");
  static std::vector<unsigned long long> memory(1 << 17);
  ULONG size = 0;
  if (query(systemHandles, memory.data(), static_cast<ULONG>(memory.size() * sizeof memory[0]), &size) < 0) return 0;
  const auto count = *reinterpret_cast<const ULONG*>(memory.data());
  const auto* handles = reinterpret_cast<const SystemHandle*>(memory.data() + 1);
  unsigned long long own = 0;
  for (ULONG i = 0; i < count; ++i) {
    if (handles[i].processId == static_cast<USHORT>(GetCurrentProcessId())) ++own;
  }
  return own;
}

void noteTick() {
  wchar_t path[1'024] = {};
  if (GetEnvironmentVariableW(L"BENCH_TICKS", path, 1'024) == 0) return;
  char line[256];
  const int length = std::snprintf(line, sizeof line, "%llu %llu %llu %llu %llu %llu\n", ticks, microseconds(),
                                   privateBytes(), ownHandles(), opened, askedFor);
  const auto open = realCall<decltype(::CreateFileW)>(L"kernel32", "CreateFileW");
  const HANDLE file = open(path, FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, 0, nullptr);
  DWORD written = 0;
  WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
  CloseHandle(file);
}

void WINAPI countedSleep(DWORD duration) {
  static const auto real = realCall<decltype(::Sleep)>(L"kernel32", "Sleep");
  static const bool hurries = numberOf(L"BENCH_HURRY") != 0;
  static const unsigned long long first = numberOf(L"BENCH_FIRST_TICK");
  static const unsigned long long last = numberOf(L"BENCH_LAST_TICK");
  ++ticks;
  // Once more before the first: what noting itself needs is there from then on.
  if (ticks == first / 2 || ticks == first || ticks == last) noteTick();
  real(hurries ? 1 : duration);
}

HANDLE WINAPI countedOpen(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                          DWORD flags, HANDLE like) {
  static const auto real = realCall<decltype(::CreateFileW)>(L"kernel32", "CreateFileW");
  ++opened;
  return real(path, access, share, attributes, disposition, flags, like);
}

DWORD WINAPI countedAttributes(LPCWSTR path) {
  static const auto real = realCall<decltype(::GetFileAttributesW)>(L"kernel32", "GetFileAttributesW");
  ++askedFor;
  return real(path);
}

}  // namespace

#define IMPORT_POINTER(name, body)                               \
  extern "C" decltype(&::name) name##Import asm("__imp_" #name); \
  decltype(&::name) name##Import = &body

IMPORT_POINTER(Sleep, countedSleep);
IMPORT_POINTER(CreateFileW, countedOpen);
IMPORT_POINTER(GetFileAttributesW, countedAttributes);
