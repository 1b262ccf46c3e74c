#include "json/parser.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "json/messages.h"

namespace launcher_stub {
namespace {

// Always false, so that a step can fail with one statement. Replaces any message set before.
bool fail(JsonCursor& cursor, std::string_view message) {
  cursor.error = message;
  return false;
}

bool atEnd(const JsonCursor& cursor) { return cursor.position == cursor.length; }

std::string_view unread(const JsonCursor& cursor) {
  return {cursor.data + cursor.position, cursor.length - cursor.position};
}

bool nextIs(const JsonCursor& cursor, char byte) { return !atEnd(cursor) && cursor.data[cursor.position] == byte; }

// Unlike expectByte, these two skip nothing.
bool takeByte(JsonCursor& cursor, char byte) {
  if (!nextIs(cursor, byte)) return false;
  ++cursor.position;
  return true;
}

bool takeText(JsonCursor& cursor, std::string_view text) {
  if (!unread(cursor).starts_with(text)) return false;
  cursor.position += text.size();
  return true;
}

void skipWhitespace(JsonCursor& cursor) {
  while (takeByte(cursor, ' ') || takeByte(cursor, '\t') || takeByte(cursor, '\n') || takeByte(cursor, '\r')) {}
}

// --- Strings ---

bool isHighSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDBFF; }

bool isLowSurrogate(std::uint32_t code) { return code >= 0xDC00 && code <= 0xDFFF; }

char toByte(std::uint32_t code) { return static_cast<char>(static_cast<unsigned char>(code)); }

char continuationByte(std::uint32_t bits) { return toByte(0x80 | (bits & 0x3F)); }

void appendCodePoint(std::uint32_t code, std::string& bytes) {
  if (code < 0x80) {
    bytes += toByte(code);
    return;
  }
  if (code < 0x800) {
    bytes += toByte(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      bytes += toByte(0xE0 | code >> 12);
    } else {
      bytes += toByte(0xF0 | code >> 18);
      bytes += continuationByte(code >> 12);
    }
    bytes += continuationByte(code >> 6);
  }
  bytes += continuationByte(code);
}

// Both of these are entered behind the first "\u".
bool appendSurrogatePair(JsonCursor& cursor, std::uint32_t high, std::string& bytes) {
  if (!takeText(cursor, "\\u")) return fail(cursor, messages::missingLowSurrogate);
  std::uint32_t low = 0;
  if (!readHex4(cursor, low)) return false;
  if (!isLowSurrogate(low)) return fail(cursor, messages::badLowSurrogate);
  appendCodePoint(0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00), bytes);
  return true;
}

bool appendUnicodeEscape(JsonCursor& cursor, std::string& bytes) {
  std::uint32_t code = 0;
  if (!readHex4(cursor, code)) return false;
  if (isHighSurrogate(code)) return appendSurrogatePair(cursor, code, bytes);
  if (isLowSurrogate(code)) return fail(cursor, messages::unpairedLowSurrogate);
  appendCodePoint(code, bytes);
  return true;
}

// Entered behind the backslash.
bool appendEscape(JsonCursor& cursor, std::string& bytes) {
  if (atEnd(cursor)) return fail(cursor, messages::badEscape);
  const char letter = cursor.data[cursor.position++];
  switch (letter) {
    case '"':
    case '\\':
    case '/':
      bytes += letter;
      return true;
    case 'b':
      bytes += '\b';
      return true;
    case 'f':
      bytes += '\f';
      return true;
    case 'n':
      bytes += '\n';
      return true;
    case 'r':
      bytes += '\r';
      return true;
    case 't':
      bytes += '\t';
      return true;
    case 'u':
      return appendUnicodeEscape(cursor, bytes);
    default:
      return fail(cursor, messages::badEscape);
  }
}

struct Utf8Form {
  std::size_t continuations;
  std::uint32_t leadBits;  // the lead byte's share of the code point
  std::uint32_t smallest;  // code points below it have a shorter form, the only valid one
};

// None: no sequence begins with this byte.
std::optional<Utf8Form> utf8FormOf(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return Utf8Form{1, lead & 0x1Fu, 0x80};
  if (lead >= 0xE0 && lead <= 0xEF) return Utf8Form{2, lead & 0x0Fu, 0x800};
  if (lead >= 0xF0 && lead <= 0xF4) return Utf8Form{3, lead & 0x07u, 0x10000};
  return std::nullopt;
}

bool isEncodable(std::uint32_t code) { return code <= 0x10FFFF && !isHighSurrogate(code) && !isLowSurrogate(code); }

bool appendUtf8Sequence(JsonCursor& cursor, std::string& bytes) {
  const std::string_view input = unread(cursor);
  const std::optional<Utf8Form> form = utf8FormOf(static_cast<unsigned char>(input[0]));
  if (!form || input.size() <= form->continuations) return fail(cursor, messages::invalidUtf8);
  std::uint32_t code = form->leadBits;
  for (std::size_t i = 1; i <= form->continuations; ++i) {
    const auto byte = static_cast<unsigned char>(input[i]);
    if ((byte & 0xC0) != 0x80) return fail(cursor, messages::invalidUtf8);
    code = code << 6 | (byte & 0x3Fu);
  }
  if (code < form->smallest || !isEncodable(code)) return fail(cursor, messages::invalidUtf8);
  bytes.append(input.substr(0, 1 + form->continuations));
  cursor.position += 1 + form->continuations;
  return true;
}

// Stands for itself in a string, and is one byte long.
bool isPlain(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x20 && code < 0x80 && byte != '"' && byte != '\\';
}

// At least one plain byte is there.
void appendPlainRun(JsonCursor& cursor, std::string& bytes) {
  const std::uint64_t start = cursor.position;
  while (!atEnd(cursor) && isPlain(cursor.data[cursor.position])) ++cursor.position;
  bytes.append(cursor.data + start, cursor.position - start);
}

// One character, or all plain ones up to the next that is not: a run holds nothing that could fail, so testing the
// length behind it finds the same fault as testing it behind each of its bytes.
bool appendCharacters(JsonCursor& cursor, std::string& bytes) {
  const char byte = cursor.data[cursor.position];
  if (isPlain(byte)) {
    appendPlainRun(cursor, bytes);
    return true;
  }
  if (takeByte(cursor, '\\')) return appendEscape(cursor, bytes);
  if (static_cast<unsigned char>(byte) < 0x20) return fail(cursor, messages::controlInString);
  return appendUtf8Sequence(cursor, bytes);
}

// --- Numbers ---

// False: there is no digit.
bool skipDigits(JsonCursor& cursor) {
  const std::uint64_t start = cursor.position;
  while (!atEnd(cursor) && cursor.data[cursor.position] >= '0' && cursor.data[cursor.position] <= '9') {
    ++cursor.position;
  }
  return cursor.position > start;
}

// A leading zero stands alone: digits behind it are left to the caller.
bool skipInteger(JsonCursor& cursor) { return takeByte(cursor, '0') || skipDigits(cursor); }

bool skipFraction(JsonCursor& cursor) { return !takeByte(cursor, '.') || skipDigits(cursor); }

bool skipExponent(JsonCursor& cursor) {
  if (!takeByte(cursor, 'e') && !takeByte(cursor, 'E')) return true;
  if (!takeByte(cursor, '+')) takeByte(cursor, '-');
  return skipDigits(cursor);
}

bool parseNumber(JsonCursor& cursor, JsonValue& value) {
  const std::uint64_t start = cursor.position;
  takeByte(cursor, '-');
  if (!skipInteger(cursor) || !skipFraction(cursor) || !skipExponent(cursor)) {
    return fail(cursor, messages::invalidNumber);
  }
  value = JsonValue(JsonNumber{std::string(cursor.data + start, cursor.position - start)});
  return true;
}

// --- Values ---

bool parseStringValue(JsonCursor& cursor, JsonValue& value) {
  std::string bytes;
  if (!parseJsonString(cursor, bytes)) return false;
  value = JsonValue(std::move(bytes));
  return true;
}

bool parseMember(JsonCursor& cursor, JsonObject& members, int depth) {
  std::string key;
  // Whatever is wrong with a key is reported as the object's fault.
  if (!parseJsonString(cursor, key)) return fail(cursor, messages::objectSyntax);
  if (!expectByte(cursor, ':')) return fail(cursor, messages::objectSyntax);
  JsonValue member;
  if (!parseJsonValue(cursor, member, depth + 1)) return false;
  const bool isNew = members.try_emplace(std::move(key), std::move(member)).second;
  return isNew || fail(cursor, messages::duplicateKey);
}

// Entered behind the opening brace. `depth` is the object's own; the same holds for arrays.
bool parseObject(JsonCursor& cursor, JsonValue& value, int depth) {
  JsonObject members;
  if (!expectByte(cursor, '}')) {
    do {
      if (!parseMember(cursor, members, depth)) return false;
    } while (expectByte(cursor, ','));
    if (!expectByte(cursor, '}')) return fail(cursor, messages::objectSyntax);
  }
  value = JsonValue(std::move(members));
  return true;
}

bool parseArray(JsonCursor& cursor, JsonValue& value, int depth) {
  JsonArray elements;
  if (!expectByte(cursor, ']')) {
    do {
      JsonValue element;
      if (!parseJsonValue(cursor, element, depth + 1)) return false;
      elements.push_back(std::move(element));
    } while (expectByte(cursor, ','));
    if (!expectByte(cursor, ']')) return fail(cursor, messages::arraySyntax);
  }
  value = JsonValue(std::move(elements));
  return true;
}

// A literal ends with its last letter, whatever follows: "truex" leaves an "x" that the caller has no place for.
bool takeLiteral(JsonCursor& cursor, JsonValue& value) {
  if (takeText(cursor, "true")) {
    value = JsonValue(true);
  } else if (takeText(cursor, "false")) {
    value = JsonValue(false);
  } else if (takeText(cursor, "null")) {
    value = JsonValue();
  } else {
    return false;
  }
  return true;
}

bool parseWholeInput(JsonCursor& cursor, JsonValue& value) {
  if (cursor.length > kMaxRecordBytes) return fail(cursor, messages::recordTooLarge);
  if (!parseJsonValue(cursor, value, 0)) return false;
  skipWhitespace(cursor);
  return atEnd(cursor) || fail(cursor, messages::trailingData);
}

}  // namespace

bool parseJsonDocument(const char* data, std::uint64_t length, JsonValue& value, std::string& error) {
  JsonCursor cursor{.data = data, .length = length, .position = 0, .error = {}};
  if (parseWholeInput(cursor, value)) return true;
  error = std::move(cursor.error);
  return false;
}

bool parseJsonValue(JsonCursor& cursor, JsonValue& value, int depth) {
  if (depth > kMaxJsonDepth) return fail(cursor, messages::depthExceeded);
  skipWhitespace(cursor);
  if (atEnd(cursor)) return fail(cursor, messages::missingValue);
  if (nextIs(cursor, '"')) return parseStringValue(cursor, value);
  if (expectByte(cursor, '{')) return parseObject(cursor, value, depth);
  if (expectByte(cursor, '[')) return parseArray(cursor, value, depth);
  return takeLiteral(cursor, value) || parseNumber(cursor, value);
}

bool parseJsonString(JsonCursor& cursor, std::string& bytes) {
  if (!expectByte(cursor, '"')) return fail(cursor, messages::expectedString);
  if (atEnd(cursor)) return fail(cursor, messages::unterminatedString);
  bytes.clear();
  while (!takeByte(cursor, '"')) {
    if (!appendCharacters(cursor, bytes)) return false;
    if (bytes.size() > kMaxStringBytes) return fail(cursor, messages::stringTooLong);
    if (atEnd(cursor)) return fail(cursor, messages::unterminatedString);
  }
  return true;
}

bool readHex4(JsonCursor& cursor, std::uint32_t& codeUnit) {
  const std::string_view digits = unread(cursor).substr(0, 4);
  if (digits.size() < 4) return fail(cursor, messages::badUnicodeEscape);
  codeUnit = 0;
  for (const char digit : digits) {
    codeUnit <<= 4;
    if (digit >= '0' && digit <= '9') {
      codeUnit |= static_cast<std::uint32_t>(digit - '0');
    } else if (digit >= 'a' && digit <= 'f') {
      codeUnit |= static_cast<std::uint32_t>(digit - 'a' + 10);
    } else if (digit >= 'A' && digit <= 'F') {
      codeUnit |= static_cast<std::uint32_t>(digit - 'A' + 10);
    } else {
      return fail(cursor, messages::badUnicodeEscape);
    }
  }
  cursor.position += 4;
  return true;
}

bool expectByte(JsonCursor& cursor, char byte) {
  skipWhitespace(cursor);
  return takeByte(cursor, byte);
}

}  // namespace launcher_stub
