// The private state root: where it is, and that it belongs to its user alone.
#pragma once

#include <string>
#include <string_view>

namespace launcher_stub::os {

// The state root for an installation. `stateRoot`: the bootstrap's setting (UTF-8), empty for none; an absolute one is
// used as it is, any other is taken relative to `installDirectory`. Without one: a fixed folder under LOCALAPPDATA.
// Empty when no root can be found.
std::wstring resolveStateRoot(const std::wstring& installDirectory, std::string_view stateRoot);

// Makes sure that `path` is a directory which admits the current user and the local system account only. Every
// missing ancestor is created with the same list; an existing directory is verified. True when the directory is there
// and acceptable. `error`, where given, is set only to "state root belongs to another account"; other failures are
// silent and the caller words them. Notices go out as diagnostic lines, each at most once per process.
bool createPrivateDirectory(const std::wstring& path, std::string* error = nullptr);

// Judges an existing directory: its owner must be the current user (a directory of the administrators group is taken
// over by a member), its list exactly the private one; another list is replaced. Result and `error` as above.
// A volume that keeps no access-control lists is accepted with a notice.
bool verifyPrivateDirectory(const std::wstring& path, std::string* error = nullptr);

// Lets each notice go out once more, and asks the system anew what it was asked once. For tests of this very process.
void resetStateRootForTests();

}  // namespace launcher_stub::os
