// Every text that the launch sequence, the supervision and the write retry report.
#pragma once

#include <string_view>

namespace launcher_stub::messages {

constexpr std::string_view missingBootstrap = "missing bootstrap-v1.json";
// Followed by the reader's text.
constexpr std::string_view invalidBootstrapDocument = "invalid bootstrap-v1.json: ";
constexpr std::string_view cannotCreateStateRoot = "cannot create private state root";
constexpr std::string_view cannotAcquireLease = "cannot acquire launch lease";
constexpr std::string_view stateLockTimeout = "state lock timeout";
constexpr std::string_view cannotWriteState = "cannot write launcher state";

// The four transitions by name, and what follows a name when its write fails.
constexpr std::string_view launchTransition = "launch transition";
constexpr std::string_view spawnFailureTransition = "spawn failure transition";
constexpr std::string_view exitTransition = "exit transition";
constexpr std::string_view tickMetadata = "tick metadata";
constexpr std::string_view writeFailedRetrying = " write failed; retrying";
constexpr std::string_view writeFailedExiting = " write failed for 30 seconds; exiting";
constexpr std::string_view writeFailedDropping = " write failed for 30 seconds; dropping write";

}  // namespace launcher_stub::messages
