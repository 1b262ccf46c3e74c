// Strict, small and bounded: standard JSON with fixed limits, the first fault reported as one short text.
#pragma once

#include <cstdint>
#include <string>

#include "json/value.h"

namespace launcher_stub {

constexpr std::uint64_t kMaxRecordBytes = 65536;  // largest document accepted
constexpr int kMaxJsonDepth = 8;                  // the top value is at depth 0
constexpr std::uint64_t kMaxStringBytes = 4096;   // largest decoded string or key accepted

// Parses `length` bytes at `data` (no terminator needed). False: `error` holds one of the texts of json/messages.h,
// and `value` is to be discarded. Malformed input never throws; only exhausted memory does.
bool parseJsonDocument(const char* data, std::uint64_t length, JsonValue& value, std::string& error);

// --- The parser's steps, for its own tests ---

struct JsonCursor {
  const char* data = nullptr;  // not owned
  std::uint64_t length = 0;
  std::uint64_t position = 0;  // of the next unread byte
  std::string error;           // the last failure set; empty until one happens
};

bool parseJsonValue(JsonCursor& cursor, JsonValue& value, int depth);
bool parseJsonString(JsonCursor& cursor, std::string& bytes);
bool readHex4(JsonCursor& cursor, std::uint32_t& codeUnit);
bool expectByte(JsonCursor& cursor, char byte);

}  // namespace launcher_stub
