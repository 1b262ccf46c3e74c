// What all versioned documents have in common: the header check, and typed members looked up by key.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "json/value.h"

namespace launcher_stub {

// Parses `document` and checks that it is an object whose "schemaVersion" is the unsigned integer 1. True: `value` is
// that object. False: `error` is the parser's text, "expected object", "missing schemaVersion", "invalid
// schemaVersion" or "unsupported major".
bool checkDocumentHeader(std::string_view document, JsonValue& value, std::string& error);

// A whole unsigned 64-bit decimal: digits only, no sign, fraction or exponent. None for anything else, and above
// 18446744073709551615.
std::optional<std::uint64_t> parseUnsigned(std::string_view digits);

// A required member. False: it is absent or of another kind, and `error` is "invalid " followed by the key.
bool readString(const JsonObject& members, std::string_view key, std::string& text, std::string& error);
bool readUnsigned(const JsonObject& members, std::string_view key, std::uint64_t& number, std::string& error);

// An optional member: absent clears `text` and is fine; present and not a string fails as above.
bool readOptionalString(const JsonObject& members, std::string_view key, std::optional<std::string>& text,
                        std::string& error);

// "invalid " followed by the key.
std::string invalidMember(std::string_view key);

// A number member for a document to be written.
JsonValue unsignedNumber(std::uint64_t number);

// The members that every document to be written begins with: "schemaVersion" alone.
JsonObject newDocument();

}  // namespace launcher_stub
