// How one call of the system is replaced. A call is described by a struct derived from Call; its replacement counts
// it, refuses it or carries it out, and keeps book of what it gives and takes back.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/call_faults/import_table.h"
#include "tests/call_faults/watch.h"

namespace call_faults {

// What the sweep needs to know of a replaced call.
struct ReplacedCall {
  std::string_view name;
  std::vector<Refusal> refusals;  // the errors that the system really has for it; none: it cannot fail
};

// Error codes by which a call is refused.
inline std::vector<Refusal> codes(std::initializer_list<DWORD> list) {
  std::vector<Refusal> refusals;
  for (const DWORD code : list) refusals.push_back({code, Way::refused});
  return refusals;
}
inline std::vector<Refusal> doneAndRefused(DWORD code) { return {{code, Way::doneAndRefused}}; }

// Defaults, which a description hides with its own. All take the call's own arguments.
struct Call {
  static std::wstring subject(const auto&...) { return {}; }
};

// The result by which a call tells of its failure, with the last error set.
template <auto Value>
struct FailsWith : Call {
  static auto failed(const Refusal& refusal, const auto&...) {
    SetLastError(refusal.code);
    // cppcheck-suppress compareBoolExpressionWithInt  // the values of BOOL are three: GetMessageW has -1, too
    return Value;
  }
};
struct FailsWithFalse : FailsWith<BOOL{FALSE}> {};
struct FailsWithZero : FailsWith<DWORD{0}> {};
struct FailsWithNull : Call {
  static std::nullptr_t failed(const Refusal& refusal, const auto&...) {
    SetLastError(refusal.code);
    return nullptr;
  }
};
struct FailsWithInvalidHandle : Call {
  static HANDLE failed(const Refusal& refusal, const auto&...) {
    SetLastError(refusal.code);
    return INVALID_HANDLE_VALUE;
  }
};
struct FailsWithItsCode : Call {
  static DWORD failed(const Refusal& refusal, const auto&...) { return refusal.code; }
};

template <typename Description, typename Signature>
class Replacement;

template <typename Description, typename Result, typename... Arguments>
class Replacement<Description, Result(Arguments...)> {
 public:
  static inline Result (*real)(Arguments...) = nullptr;

  static void install() {
    // In this order: other threads may be calling it.
    real = reinterpret_cast<Result (*)(Arguments...)>(importedFunction(Description::name));
    replaceImport(Description::name, reinterpret_cast<void*>(&replaced));
  }

  static Result replaced(Arguments... arguments) {
    if (!isWatching()) return real(arguments...);
    const bool byLauncher = isLauncherCode(__builtin_return_address(0));
    const InsideReplacedCall inside;
    const DWORD lastError = GetLastError();
    const Refusal* refusal =
        byLauncher ? watch().count(Description::name, Description::subject(arguments...)) : nullptr;
    SetLastError(lastError);
    if constexpr (requires { Description::failed(Refusal{}, arguments...); }) {
      if (refusal != nullptr && refusal->way != Way::doneAndRefused) {
        return static_cast<Result>(Description::failed(*refusal, arguments...));
      }
    }
    return carryOut(byLauncher, refusal, arguments...);
  }

 private:
  static Result carryOut(bool byLauncher, const Refusal* refusal, Arguments... arguments) {
    if constexpr (std::is_void_v<Result>) {
      Description::carriedOut(byLauncher, arguments...);
    } else if constexpr (requires { Description::insteadOf(byLauncher, arguments...); }) {
      return static_cast<Result>(Description::insteadOf(byLauncher, arguments...));
    } else {
      const Result result = real(arguments...);
      const DWORD code = GetLastError();
      const bool told = refusal == nullptr;
      if constexpr (requires { Description::done(byLauncher, told, result, arguments...); }) {
        Description::done(byLauncher, told, result, arguments...);
      }
      SetLastError(code);
      if constexpr (requires { Description::failed(Refusal{}, arguments...); }) {
        if (!told) return static_cast<Result>(Description::failed(*refusal, arguments...));
      }
      return result;
    }
  }
};

// Replaces a call and adds it to the list.
template <typename Description, typename Function>
void replaceCall(std::vector<ReplacedCall>& list, Function* /*deducesTheSignature*/) {
  Replacement<Description, Function>::install();
  list.push_back({Description::name, Description::refusals()});
}
template <typename Description, typename Function>
auto realCall(Function* /*deducesTheSignature*/) {
  return Replacement<Description, Function>::real;
}

// All replaced calls, by subject. To be called once.
void replaceFileCalls(std::vector<ReplacedCall>& list);
void replaceProcessCalls(std::vector<ReplacedCall>& list);
void replaceSecurityCalls(std::vector<ReplacedCall>& list);
void replaceOtherCalls(std::vector<ReplacedCall>& list);

// Replaces everything, the first time; the list.
const std::vector<ReplacedCall>& replacedCalls();

// Imports of the launcher that are left alone, each with the reason.
struct LeftAlone {
  std::string_view name;
  std::string_view why;
};
const std::vector<LeftAlone>& callsLeftAlone();

}  // namespace call_faults
