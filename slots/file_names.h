// What files and directories are called: in the install directory, the state root, a slot and an attempt.
#pragma once

#include <string_view>

namespace launcher_stub::files {

constexpr std::wstring_view bootstrap = L"bootstrap-v1.json";
constexpr std::wstring_view seed = L"seed";

constexpr std::wstring_view bootState = L"boot-v1.json";  // also the name of an attempt's own record
constexpr std::wstring_view previousBootState = L"boot-v1.previous.json";
constexpr std::wstring_view pendingRequest = L"pending-v1.json";
constexpr std::wstring_view launchLock = L"launch.lock";
constexpr std::wstring_view stateLock = L"state.lock";
constexpr std::wstring_view attempts = L"attempts";
constexpr std::wstring_view slots = L"slots";

constexpr std::wstring_view entry = L"entry-v1.exe";
constexpr std::wstring_view complete = L"COMPLETE-v1";
constexpr std::wstring_view delivery = L"delivery-v1.json";

constexpr std::wstring_view ready = L"ready-v1";
constexpr std::wstring_view healthy = L"healthy-v1";
constexpr std::wstring_view restartRequest = L"restart-v1.json";

}  // namespace launcher_stub::files
