#include "json/parser.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "json/document_memory.h"
#include "json/member_order.h"
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

bool isWhitespace(char byte) { return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r'; }

void skipWhitespace(JsonCursor& cursor) {
  while (!atEnd(cursor) && isWhitespace(cursor.data[cursor.position])) ++cursor.position;
}

// --- Strings ---

bool isHighSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDBFF; }

bool isLowSurrogate(std::uint32_t code) { return code >= 0xDC00 && code <= 0xDFFF; }

char toByte(std::uint32_t code) { return static_cast<char>(static_cast<unsigned char>(code)); }

char continuationByte(std::uint32_t bits) { return toByte(0x80 | (bits & 0x3F)); }

void appendCodePoint(std::uint32_t code, char*& out) {
  if (code < 0x80) {
    *out++ = toByte(code);
    return;
  }
  if (code < 0x800) {
    *out++ = toByte(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      *out++ = toByte(0xE0 | code >> 12);
    } else {
      *out++ = toByte(0xF0 | code >> 18);
      *out++ = continuationByte(code >> 12);
    }
    *out++ = continuationByte(code >> 6);
  }
  *out++ = continuationByte(code);
}

// Both of these are entered behind the first "\u".
bool appendSurrogatePair(JsonCursor& cursor, std::uint32_t high, char*& out) {
  if (!takeText(cursor, "\\u")) return fail(cursor, messages::missingLowSurrogate);
  std::uint32_t low = 0;
  if (!readHex4(cursor, low)) return false;
  if (!isLowSurrogate(low)) return fail(cursor, messages::badLowSurrogate);
  appendCodePoint(0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00), out);
  return true;
}

bool appendUnicodeEscape(JsonCursor& cursor, char*& out) {
  std::uint32_t code = 0;
  if (!readHex4(cursor, code)) return false;
  if (isHighSurrogate(code)) return appendSurrogatePair(cursor, code, out);
  if (isLowSurrogate(code)) return fail(cursor, messages::unpairedLowSurrogate);
  appendCodePoint(code, out);
  return true;
}

// Entered behind the backslash.
bool appendEscape(JsonCursor& cursor, char*& out) {
  if (atEnd(cursor)) return fail(cursor, messages::badEscape);
  const char letter = cursor.data[cursor.position++];
  switch (letter) {
    case '"':
    case '\\':
    case '/':
      *out++ = letter;
      return true;
    case 'b':
      *out++ = '\b';
      return true;
    case 'f':
      *out++ = '\f';
      return true;
    case 'n':
      *out++ = '\n';
      return true;
    case 'r':
      *out++ = '\r';
      return true;
    case 't':
      *out++ = '\t';
      return true;
    case 'u':
      return appendUnicodeEscape(cursor, out);
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

bool appendUtf8Sequence(JsonCursor& cursor, char*& out) {
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
  out = std::copy_n(input.data(), 1 + form->continuations, out);
  cursor.position += 1 + form->continuations;
  return true;
}

// Stands for itself in a string, and is one byte long.
bool isPlain(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code >= 0x20 && code < 0x80 && byte != '"' && byte != '\\';
}

constexpr std::uint64_t inEachByte(std::uint8_t byte) { return byte * 0x0101010101010101u; }

// The highest bit of some byte is set if and only if some byte of `eight` is less than `limit`, which is at most 0x80.
constexpr std::uint64_t anyLess(std::uint64_t eight, std::uint8_t limit) {
  return (eight - inEachByte(limit)) & ~eight & inEachByte(0x80);
}

// isPlain for eight bytes, in whatever order they stand in the word.
constexpr bool allPlain(std::uint64_t eight) {
  return ((eight & inEachByte(0x80)) | anyLess(eight, 0x20) | anyLess(eight ^ inEachByte('"'), 1) |
          anyLess(eight ^ inEachByte('\\'), 1)) == 0;
}

// At least one plain byte is there. Slot names and request ids are long runs: eight bytes at a time.
void appendPlainRun(JsonCursor& cursor, char*& out) {
  const char* byte = cursor.data + cursor.position;
  const char* const end = cursor.data + cursor.length;
  char* copied = out;
  for (std::uint64_t eight = 0; end - byte >= 8; byte += sizeof eight, copied += sizeof eight) {
    std::memcpy(&eight, byte, sizeof eight);
    if (!allPlain(eight)) break;
    std::memcpy(copied, &eight, sizeof eight);
  }
  while (byte != end && isPlain(*byte)) *copied++ = *byte++;
  cursor.position += static_cast<std::uint64_t>(copied - out);
  out = copied;
}

// One character, or all plain ones up to the next that is not: a run holds nothing that could fail, so testing the
// length behind it finds the same fault as testing it behind each of its bytes.
bool appendCharacters(JsonCursor& cursor, char*& out) {
  const char byte = cursor.data[cursor.position];
  if (isPlain(byte)) {
    appendPlainRun(cursor, out);
    return true;
  }
  if (takeByte(cursor, '\\')) return appendEscape(cursor, out);
  if (static_cast<unsigned char>(byte) < 0x20) return fail(cursor, messages::controlInString);
  return appendUtf8Sequence(cursor, out);
}

// Writes the string's bytes to `out` and moves it behind them. No character is longer than what stands for it in the
// document, so the room needed is never more than the bytes read.
bool decodeString(JsonCursor& cursor, char*& out) {
  if (!expectByte(cursor, '"')) return fail(cursor, messages::expectedString);
  if (atEnd(cursor)) return fail(cursor, messages::unterminatedString);
  const char* const start = out;
  while (!takeByte(cursor, '"')) {
    if (!appendCharacters(cursor, out)) return false;
    if (static_cast<std::uint64_t>(out - start) > kMaxStringBytes) return fail(cursor, messages::stringTooLong);
    if (atEnd(cursor)) return fail(cursor, messages::unterminatedString);
  }
  return true;
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

bool skipNumber(JsonCursor& cursor) {
  takeByte(cursor, '-');
  if (skipInteger(cursor) && skipFraction(cursor) && skipExponent(cursor)) return true;
  return fail(cursor, messages::invalidNumber);
}

// --- Values ---

// One parse: what is read, and where its values are built.
struct Builder {
  JsonCursor& cursor;
  DocumentMemory memory;
};

// Every `value` that is to be read into is Null when it is handed over.
bool parseValue(Builder& builder, JsonValue& value, int depth);

// Null owns nothing that had to be destroyed first.
template <typename Payload>
void fill(JsonValue& value, Payload payload) {
  std::construct_at(&value, std::move(payload));
}

bool parseText(Builder& builder, JsonText& text) {
  char* const start = builder.memory.text();
  if (!decodeString(builder.cursor, builder.memory.text())) return false;
  text = JsonText(JsonText::lentBy(start, static_cast<std::size_t>(builder.memory.text() - start)));
  return true;
}

bool parseStringValue(Builder& builder, JsonValue& value) {
  JsonText text;
  if (!parseText(builder, text)) return false;
  fill(value, std::move(text));
  return true;
}

bool parseNumber(Builder& builder, JsonValue& value) {
  const char* const source = builder.cursor.data + builder.cursor.position;
  if (!skipNumber(builder.cursor)) return false;
  const char* const sourceEnd = builder.cursor.data + builder.cursor.position;
  char* const start = builder.memory.text();
  builder.memory.text() = std::copy(source, sourceEnd, start);
  fill(value, JsonNumber{JsonText(JsonText::lentBy(start, static_cast<std::size_t>(sourceEnd - source)))});
  return true;
}

bool parseMember(Builder& builder, int depth) {
  JsonCursor& cursor = builder.cursor;
  auto& member = builder.memory.push<JsonMember>();
  // Whatever is wrong with a key is reported as the object's fault.
  if (!parseText(builder, member.key)) return fail(cursor, messages::objectSyntax);
  if (!expectByte(cursor, ':')) return fail(cursor, messages::objectSyntax);
  return parseValue(builder, member.value, depth + 1);
}

// Entered in front of the first key. `complete` counts the members that are read completely.
bool parseMembers(Builder& builder, int depth, std::size_t& complete) {
  do {
    if (!parseMember(builder, depth)) return false;
    ++complete;
  } while (expectByte(builder.cursor, ','));
  return expectByte(builder.cursor, '}') || fail(builder.cursor, messages::objectSyntax);
}

// Entered behind the opening brace. `depth` is the object's own; the same holds for arrays.
//
// A repeated key counts as found where its member ends, ahead of every fault behind it. Looking for it only here, once
// and in sorted order, comes to the same: it replaces the message of whatever was found later, also of faults within
// the values of this object.
bool parseObject(Builder& builder, JsonValue& value, int depth) {
  if (expectByte(builder.cursor, '}')) {
    fill(value, JsonObject());
    return true;
  }
  auto* const first = builder.memory.next<JsonMember>();
  std::size_t complete = 0;
  const bool isWellFormed = parseMembers(builder, depth, complete);
  if (!sortMembers(first, complete, builder.memory.places())) return fail(builder.cursor, messages::duplicateKey);
  if (!isWellFormed) return false;
  fill(value, JsonObject(builder.memory.close(first)));
  return true;
}

bool parseArray(Builder& builder, JsonValue& value, int depth) {
  if (expectByte(builder.cursor, ']')) {
    fill(value, JsonArray());
    return true;
  }
  auto* const first = builder.memory.next<JsonValue>();
  do {
    if (!parseValue(builder, builder.memory.push<JsonValue>(), depth + 1)) return false;
  } while (expectByte(builder.cursor, ','));
  if (!expectByte(builder.cursor, ']')) return fail(builder.cursor, messages::arraySyntax);
  fill(value, builder.memory.close(first));
  return true;
}

// A literal ends with its last letter, whatever follows: "truex" leaves an "x" that the caller has no place for.
bool takeLiteral(JsonCursor& cursor, JsonValue& value) {
  if (takeText(cursor, "true")) {
    fill(value, true);
  } else if (takeText(cursor, "false")) {
    fill(value, false);
  } else {
    return takeText(cursor, "null");
  }
  return true;
}

bool parseValue(Builder& builder, JsonValue& value, int depth) {
  JsonCursor& cursor = builder.cursor;
  if (depth > kMaxJsonDepth) return fail(cursor, messages::depthExceeded);
  skipWhitespace(cursor);
  if (atEnd(cursor)) return fail(cursor, messages::missingValue);
  switch (cursor.data[cursor.position]) {
    case '"':
      return parseStringValue(builder, value);
    case '{':
      ++cursor.position;
      return parseObject(builder, value, depth);
    case '[':
      ++cursor.position;
      return parseArray(builder, value, depth);
    case 't':
    case 'f':
    case 'n':
      return takeLiteral(cursor, value) || fail(cursor, messages::invalidNumber);
    default:
      return parseNumber(builder, value);
  }
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
  Builder builder{cursor, DocumentMemory(cursor.length - cursor.position)};
  JsonValue parsed;
  if (!parseValue(builder, parsed, depth)) return false;
  // Without items of its own the value could not own the memory that its text is in; its copy owns what it needs.
  value = builder.memory.isOwner() ? JsonValue(std::as_const(parsed)) : std::move(parsed);
  return true;
}

bool parseJsonString(JsonCursor& cursor, std::string& bytes) {
  bytes.resize(cursor.length - cursor.position);
  char* out = bytes.data();
  if (!decodeString(cursor, out)) return false;
  bytes.resize(static_cast<std::size_t>(out - bytes.data()));
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
