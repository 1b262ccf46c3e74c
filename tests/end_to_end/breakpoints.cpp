#include "tests/end_to_end/breakpoints.h"

#include <windows.h>

#include "tests/end_to_end/files.h"

namespace end_to_end {
namespace {

// System libraries lie at the same address in every process.
void* addressOf(const std::string& function) {
  const auto address = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), function.c_str());
  if (address == nullptr) fail("no function " + function);
  return reinterpret_cast<void*>(address);
}

// One instruction byte replaced by the breakpoint instruction, until it has been reached.
class Breakpoint {
 public:
  Breakpoint(HANDLE process, const std::string& function) : process_(process), address_(addressOf(function)) {
    SIZE_T count = 0;
    if (!ReadProcessMemory(process_, address_, &original_, 1, &count)) fail("cannot read " + function);
    write(0xCC);
  }

  bool isAt(const void* address) const { return address == address_; }

  // Puts the instruction back and the thread before it.
  void remove(DWORD threadId) {
    write(original_);
    const Handle thread(OpenThread(THREAD_GET_CONTEXT | THREAD_SET_CONTEXT, FALSE, threadId));
    alignas(16) CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    if (!GetThreadContext(thread.get(), &context)) fail("cannot read the thread's registers");
    context.Rip = reinterpret_cast<DWORD64>(address_);
    if (!SetThreadContext(thread.get(), &context)) fail("cannot set the thread's registers");
  }

 private:
  void write(unsigned char byte) {
    DWORD protection = 0;
    SIZE_T count = 0;
    VirtualProtectEx(process_, address_, 1, PAGE_EXECUTE_READWRITE, &protection);
    if (!WriteProcessMemory(process_, address_, &byte, 1, &count)) fail("cannot set a breakpoint");
    VirtualProtectEx(process_, address_, 1, protection, &protection);
    FlushInstructionCache(process_, address_, 1);
  }

  HANDLE process_;
  void* address_;
  unsigned char original_ = 0;
};

void closeFileOf(const DEBUG_EVENT& event) {
  HANDLE file = nullptr;
  if (event.dwDebugEventCode == CREATE_PROCESS_DEBUG_EVENT) file = event.u.CreateProcessInfo.hFile;
  if (event.dwDebugEventCode == LOAD_DLL_DEBUG_EVENT) file = event.u.LoadDll.hFile;
  if (file != nullptr) CloseHandle(file);
}

// What the process said since it was last let run; false when nothing came in time.
bool nextEvent(DEBUG_EVENT& event) { return WaitForDebugEvent(&event, patienceMs) != 0; }

}  // namespace

const std::uint32_t startForBreakpoints = DEBUG_ONLY_THIS_PROCESS;

bool runToCalls(const Process& process, const std::vector<std::string>& functions) {
  std::vector<Breakpoint> reached;  // at most one is set: the last
  DEBUG_EVENT event = {};
  while (nextEvent(event)) {
    closeFileOf(event);
    DWORD answer = DBG_CONTINUE;
    if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
      ContinueDebugEvent(event.dwProcessId, event.dwThreadId, DBG_CONTINUE);
      return false;
    }
    if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT) {
      const EXCEPTION_RECORD& exception = event.u.Exception.ExceptionRecord;
      const bool breakpoint = exception.ExceptionCode == static_cast<DWORD>(EXCEPTION_BREAKPOINT);
      // The system's own breakpoint comes first, when all libraries are in place.
      if (breakpoint && reached.empty()) {
        reached.emplace_back(process.handle(), functions.front());
      } else if (breakpoint && reached.back().isAt(exception.ExceptionAddress)) {
        reached.back().remove(event.dwThreadId);
        if (reached.size() == functions.size()) return true;
        reached.emplace_back(process.handle(), functions[reached.size()]);
      } else {
        answer = DBG_EXCEPTION_NOT_HANDLED;
      }
    }
    ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
  }
  return false;
}

}  // namespace end_to_end
