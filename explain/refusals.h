// What launcher-explain says when it cannot explain anything.
#pragma once

#include <string_view>

namespace launcher_stub::explain::refusals {

constexpr std::string_view cannotExplain = "launcher-explain: ";

// Followed by the state root that the bootstrap names, and the second text.
constexpr std::string_view rootOnOtherMachine = "the state root that the bootstrap names lies on another machine: ";
constexpr std::string_view rootIsDefault =
    "the bootstrap names no state root, and the default one lies on another machine";
constexpr std::string_view nameRoot = "; name the copy with --state-root DIR";

constexpr std::string_view notAPath = "an argument is not valid text";
constexpr std::string_view unknownOption = "unknown option: ";
constexpr std::string_view optionNeedsDirectory = "--state-root needs a directory";
constexpr std::string_view oneInstallDirectory = "name one install directory";
constexpr std::string_view seeHelp = "; see launcher-explain --help";

}  // namespace launcher_stub::explain::refusals
