// The record of one launch attempt, "boot-v1.json" in its attempt directory. The runtime's markers "ready-v1" and
// "healthy-v1" are slot references of the same form and are read with the same reader.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "json/value.h"

namespace launcher_stub {

struct AttemptRecord {
  std::string slot;             // runnable slot name
  std::string nonce;            // token
  std::uint64_t startedAt = 0;  // monotonic ms; written for people, never read back

  bool operator==(const AttemptRecord&) const = default;
};

// Fills slot and nonce. False: `error` says what is wrong first, and `record` is to be discarded.
bool readAttemptRecord(std::string_view document, AttemptRecord& record, std::string& error);

std::string writeAttemptRecord(const AttemptRecord& record);

// The members "slot" and "nonce", by which a document says which attempt it belongs to. False: as above.
bool readSlotReference(const JsonObject& members, std::string& slot, std::string& nonce, std::string& error);

}  // namespace launcher_stub
