// The differences between our parser and others that are meant to be, each by name.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tests/json/differential/judgement.h"

namespace launcher_stub::differential {

enum class Other { rapidJson, nlohmann };

// None: the two agree on the document. Else the name of the exception that it is, or "unexplained".
std::optional<std::string_view> difference(std::string_view document, const Judgement& ours, Other who,
                                           const Judgement& other);

namespace exceptions {

// We refuse, others accept.
constexpr std::string_view size = "a document of more than 65536 bytes";
constexpr std::string_view depth = "a value at depth 9";
constexpr std::string_view longText = "a string or key of more than 4096 bytes";
constexpr std::string_view repeatedKey = "a key that the object holds already";
constexpr std::string_view byteOrderMark = "a byte-order mark in front";
constexpr std::string_view partOfMark = "a part of a byte-order mark in front";
constexpr std::string_view zeroByte = "a zero byte behind the value, taken for the end";
constexpr std::string_view loneLowSurrogate = "an escaped low surrogate without a high one";

// We accept, others refuse.
constexpr std::string_view hugeNumber = "a number that no double holds";

// Both accept.
constexpr std::string_view minusZero = "an integer that is minus zero, read as zero";

constexpr std::string_view unexplained = "unexplained";

}  // namespace exceptions
}  // namespace launcher_stub::differential
