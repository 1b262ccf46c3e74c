#include "handles.h"

#include <windows.h>

#include <winternl.h>

#include <cstddef>

#include "text.h"

namespace sample_runtime {
namespace {

constexpr auto objectTypeInformation = static_cast<OBJECT_INFORMATION_CLASS>(2);
constexpr std::string_view leaseName = "\\launch.lock";

std::string typeOf(HANDLE handle) {
  // The structure and, right behind it, the text that it points to.
  alignas(std::max_align_t) unsigned char buffer[1024] = {};
  ULONG size = 0;
  if (NtQueryObject(handle, objectTypeInformation, buffer, sizeof buffer, &size) < 0) return "?";
  const auto* type = reinterpret_cast<const UNICODE_STRING*>(buffer);
  return toUtf8({type->Buffer, type->Length / sizeof(wchar_t)});
}

std::string nameOf(HANDLE handle) {
  // Only for files on a disk: asking for the name of a pipe can block.
  if (GetFileType(handle) != FILE_TYPE_DISK) return {};
  std::wstring path(32768, L'\0');
  path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0));
  return toUtf8(path);
}

bool isStandard(HANDLE handle) {
  return handle == GetStdHandle(STD_INPUT_HANDLE) || handle == GetStdHandle(STD_OUTPUT_HANDLE) ||
         handle == GetStdHandle(STD_ERROR_HANDLE);
}

}  // namespace

std::vector<HandleFound> probeHandles(std::uintptr_t highest) {
  std::vector<HandleFound> found;
  for (std::uintptr_t value = 4; value <= highest; value += 4) {
    auto* const handle = reinterpret_cast<HANDLE>(value);  // NOLINT(performance-no-int-to-ptr): a value to be tried
    DWORD flags = 0;
    if (!GetHandleInformation(handle, &flags)) continue;
    found.push_back({value, (flags & HANDLE_FLAG_INHERIT) != 0, isStandard(handle), typeOf(handle), nameOf(handle)});
  }
  return found;
}

std::string describe(const HandleFound& handle) {
  std::string text = std::to_string(handle.value) + (handle.inheritable ? " inheritable " : " own ") +
                     (handle.standard ? "standard " : "") + handle.type;
  if (!handle.name.empty()) text += " " + handle.name;
  if (handle.name.ends_with(leaseName)) text += " [launch.lock]";
  return text;
}

}  // namespace sample_runtime
