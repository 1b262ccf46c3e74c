// The calls about text, arguments, chance and the error box; and the list of all replaced calls.
#include <windows.h>

#include <shellapi.h>

#include <mutex>

#include "tests/call_faults/replacement.h"

#define DESCRIBES(function) static constexpr std::string_view name = #function

namespace call_faults {
namespace {

struct GetEnvironmentVariableWCall : FailsWithZero {
  DESCRIBES(GetEnvironmentVariableW);
  static std::vector<Refusal> refusals() { return codes({203, 8}); }
};
struct CommandLineToArgvWCall : FailsWithNull {
  DESCRIBES(CommandLineToArgvW);
  static std::vector<Refusal> refusals() { return codes({8}); }
  static void done(bool, bool, LPWSTR* result, const auto&...) {
    if (result != nullptr) watch().acquired(Resource::localMemory, result, name);
  }
};
struct FormatMessageWCall : FailsWithZero {
  DESCRIBES(FormatMessageW);
  static std::vector<Refusal> refusals() { return codes({317, 8}); }
  static void done(bool, bool, DWORD result, DWORD flags, const auto&, const auto&, const auto&, LPWSTR buffer,
                   const auto&...) {
    if (result == 0 || (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) == 0) return;
    watch().acquired(Resource::localMemory, *reinterpret_cast<LPWSTR*>(buffer), name);
  }
};
struct MultiByteToWideCharCall : FailsWith<0> {
  DESCRIBES(MultiByteToWideChar);
  static std::vector<Refusal> refusals() { return codes({1113, 122}); }
};
struct WideCharToMultiByteCall : FailsWith<0> {
  DESCRIBES(WideCharToMultiByte);
  static std::vector<Refusal> refusals() { return codes({1113, 122}); }
};
struct CompareStringOrdinalCall : FailsWith<0> {
  DESCRIBES(CompareStringOrdinal);
  static std::vector<Refusal> refusals() { return codes({87}); }
};
struct SetDefaultDllDirectoriesCall : FailsWithFalse {
  DESCRIBES(SetDefaultDllDirectories);
  static std::vector<Refusal> refusals() { return codes({87}); }
  static BOOL insteadOf(bool, DWORD) { return TRUE; }  // it would hold for the test as well
};
struct SetProcessShutdownParametersCall : FailsWithFalse {
  DESCRIBES(SetProcessShutdownParameters);
  static std::vector<Refusal> refusals() { return codes({87}); }
  static BOOL insteadOf(bool, DWORD, DWORD) { return TRUE; }  // it would hold for the test as well
};
struct AllowSetForegroundWindowCall : FailsWithFalse {
  DESCRIBES(AllowSetForegroundWindow);
  static std::vector<Refusal> refusals() { return codes({5, 87}); }
};
struct PostMessageWCall : FailsWithFalse {
  DESCRIBES(PostMessageW);
  static std::vector<Refusal> refusals() { return codes({1816}); }
};
struct GetMessageWCall : FailsWith<-1> {
  DESCRIBES(GetMessageW);
  static std::vector<Refusal> refusals() { return codes({1400}); }
};
struct RandomCall : Call {
  static constexpr std::string_view name = "SystemFunction036";  // what the headers call RtlGenRandom
  static std::vector<Refusal> refusals() { return codes({0}); }
  static BOOLEAN failed(const Refusal&, const auto&...) { return FALSE; }
  static BOOLEAN insteadOf(bool, PVOID buffer, ULONG size) {
    for (ULONG index = 0; index < size; ++index) static_cast<std::uint8_t*>(buffer)[index] = watch().randomByte();
    return TRUE;
  }
};
using RandomReplacement = Replacement<RandomCall, BOOLEAN(PVOID, ULONG)>;

// The way to it: the library, which others import, and the name. The launcher keeps what it has got.
struct GetModuleHandleWCall : FailsWithNull {
  DESCRIBES(GetModuleHandleW);
  static std::vector<Refusal> refusals() { return codes({126}); }
};
struct GetProcAddressCall : FailsWithNull {
  DESCRIBES(GetProcAddress);
  static std::vector<Refusal> refusals() { return codes({127}); }
  static FARPROC insteadOf(bool byLauncher, HMODULE library, LPCSTR function) {
    const FARPROC found = realCall<GetProcAddressCall>(&GetProcAddress)(library, function);
    if (!byLauncher || found == nullptr || function != RandomCall::name) return found;
    RandomReplacement::real = reinterpret_cast<BOOLEAN (*)(PVOID, ULONG)>(reinterpret_cast<void*>(found));
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RandomReplacement::replaced));
  }
};

// Called by the thread of the box. Nobody is there to close it, so nothing is shown.
int WINAPI recordBox(HWND, LPCWSTR text, LPCWSTR title, UINT) {
  static std::mutex one;
  const std::lock_guard guard(one);
  watch().boxed(text, title);
  return IDOK;
}

}  // namespace

void replaceOtherCalls(std::vector<ReplacedCall>& list) {
  replaceCall<GetEnvironmentVariableWCall>(list, &GetEnvironmentVariableW);
  replaceCall<CommandLineToArgvWCall>(list, &CommandLineToArgvW);
  replaceCall<FormatMessageWCall>(list, &FormatMessageW);
  replaceCall<MultiByteToWideCharCall>(list, &MultiByteToWideChar);
  replaceCall<WideCharToMultiByteCall>(list, &WideCharToMultiByte);
  replaceCall<CompareStringOrdinalCall>(list, &CompareStringOrdinal);
  replaceCall<SetDefaultDllDirectoriesCall>(list, &SetDefaultDllDirectories);
  replaceCall<SetProcessShutdownParametersCall>(list, &SetProcessShutdownParameters);
  replaceCall<AllowSetForegroundWindowCall>(list, &AllowSetForegroundWindow);
  replaceCall<PostMessageWCall>(list, &PostMessageW);
  replaceCall<GetMessageWCall>(list, &GetMessageW);
  replaceCall<GetModuleHandleWCall>(list, &GetModuleHandleW);
  replaceCall<GetProcAddressCall>(list, &GetProcAddress);
  list.push_back({RandomCall::name, RandomCall::refusals()});  // handed out by GetProcAddress
  replaceImport("MessageBoxW", reinterpret_cast<void*>(&recordBox));
}

const std::vector<ReplacedCall>& replacedCalls() {
  static const std::vector<ReplacedCall> all = [] {
    (void)watch();  // there before anybody asks for it
    std::vector<ReplacedCall> list;
    replaceFileCalls(list);
    replaceProcessCalls(list);
    replaceSecurityCalls(list);
    replaceOtherCalls(list);
    return list;
  }();
  return all;
}

const std::vector<LeftAlone>& callsLeftAlone() {
  static const std::vector<LeftAlone> all = {
      {"EqualSid", "compares memory; no error for a valid identifier"},
      {"GetLengthSid", "reads memory; no error for a valid identifier"},
      {"GetACP", "cannot fail"},
      {"GetCommandLineW", "cannot fail"},
      {"GetCurrentProcess", "cannot fail"},
      {"GetCurrentProcessId", "cannot fail"},
      {"GetLastError", "cannot fail"},
      {"SetLastError", "cannot fail"},
      {"MessageBoxW", "recorded instead; the launcher does not look at its result"},
  };
  return all;
}

}  // namespace call_faults
