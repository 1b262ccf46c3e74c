// Every text that the platform layer writes to the diagnostic stream, shows in the box, or hands to its callers.
#pragma once

#include <string_view>

namespace launcher_stub::os::messages {

constexpr std::wstring_view errorBoxTitle = L"Plinket launcher";

// Followed by ": Win32 error " and the code.
constexpr std::string_view win32Error = ": Win32 error ";
// Followed by the code; stands in for the system's text where it has none.
constexpr std::string_view codeWithoutText = "Win32 error ";
constexpr std::string_view cannotDuplicateLease = "cannot duplicate the launch lease";
constexpr std::string_view cannotBuildHandleList = "cannot build the handle list";
// Followed by the executable's path, and from startChild also by the code.
constexpr std::string_view cannotStart = "cannot start ";

constexpr std::string_view cannotCreateChildJob = "cannot create child job";

constexpr std::string_view rootBelongsToAnother = "state root belongs to another account";
constexpr std::string_view volumeKeepsNoLists = "filesystem does not provide persistent state root ACLs";
constexpr std::string_view listNotPersisted = "filesystem did not persist the private directory ACL";
constexpr std::string_view listReset = "reset state root DACL to current user and system principals";

}  // namespace launcher_stub::os::messages
