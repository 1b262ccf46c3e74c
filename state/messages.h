// Every text that the record readers and the decision step report, besides the parser's.
#pragma once

#include <string_view>

namespace launcher_stub::messages {

constexpr std::string_view expectedObject = "expected object";
constexpr std::string_view missingSchemaVersion = "missing schemaVersion";
constexpr std::string_view unsupportedMajor = "unsupported major";

// Followed by the key of a required or typed member that is missing, of another type, or (for numbers) not a whole
// unsigned one: "invalid generation", "invalid rejected", "invalid deliveryId", ...
constexpr std::string_view invalidPrefix = "invalid ";

constexpr std::string_view invalidBootstrap = "invalid bootstrap";
constexpr std::string_view invalidSlot = "invalid slot";
constexpr std::string_view invalidToken = "invalid token";
constexpr std::string_view invalidRejectedSlot = "invalid rejected slot";
constexpr std::string_view attemptCountOverflow = "attemptCount overflow";

constexpr std::string_view noRunnableRuntime = "No runnable runtime";
constexpr std::string_view generationOverflow = "generation overflow";

}  // namespace launcher_stub::messages
