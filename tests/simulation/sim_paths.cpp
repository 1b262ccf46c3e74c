#include "tests/simulation/sim_paths.h"

#include <cstdio>

namespace launcher_stub::sim {
namespace {

bool isSeparator(wchar_t character) { return character == L'\\' || character == L'/'; }

wchar_t folded(wchar_t character) {
  if (character >= L'A' && character <= L'Z') return static_cast<wchar_t>(character - L'A' + L'a');
  return character == L'/' ? L'\\' : character;
}

// Where the last separator stands; `npos` for none.
std::size_t lastSeparator(std::wstring_view path) {
  for (std::size_t i = path.size(); i-- > 0;) {
    if (isSeparator(path[i])) return i;
  }
  return std::wstring_view::npos;
}

// `pattern` against the whole of `text`, both folded.
bool wildcardMatch(std::wstring_view text, std::wstring_view pattern) {
  if (pattern.empty()) return text.empty();
  if (pattern.front() == L'*') {
    for (std::size_t skipped = 0; skipped <= text.size(); ++skipped) {
      if (wildcardMatch(text.substr(skipped), pattern.substr(1))) return true;
      if (skipped < text.size() && text[skipped] == L'\\') return false;
    }
    return false;
  }
  return !text.empty() && text.front() == pattern.front() && wildcardMatch(text.substr(1), pattern.substr(1));
}

// A quick look at the ends, before the first separator or wildcard from behind: true where they differ already.
bool lastElementsDiffer(std::wstring_view path, std::wstring_view pattern) {
  while (!path.empty() && !pattern.empty()) {
    const wchar_t wanted = pattern.back();
    if (wanted == L'*' || isSeparator(wanted) || isSeparator(path.back())) return false;
    if (folded(wanted) != folded(path.back())) return true;
    path.remove_suffix(1);
    pattern.remove_suffix(1);
  }
  return false;
}

}  // namespace

std::wstring pathKey(std::wstring_view path) {
  // No other function is called as often: one call of the platform asks several times for the same path.
  thread_local std::wstring lastPath;
  thread_local std::wstring lastKey;
  if (path == lastPath) return lastKey;
  std::wstring key(path.size(), L'\0');
  wchar_t* end = key.data();
  for (const wchar_t character : path) {
    if (isSeparator(character) && end != key.data() && end[-1] == L'\\') continue;
    *end++ = folded(character);
  }
  if (end != key.data() && end[-1] == L'\\') --end;
  key.resize(static_cast<std::size_t>(end - key.data()));
  lastPath = path;
  lastKey = key;
  return key;
}

std::wstring parentOf(std::wstring_view path) {
  const std::size_t separator = lastSeparator(path);
  return separator == std::wstring_view::npos ? std::wstring() : std::wstring(path.substr(0, separator));
}

std::wstring lastElementOf(std::wstring_view path) {
  const std::size_t separator = lastSeparator(path);
  return std::wstring(separator == std::wstring_view::npos ? path : path.substr(separator + 1));
}

bool pathMatches(std::wstring_view path, std::wstring_view pattern) {
  if (pattern.empty()) return true;
  if (lastElementsDiffer(path, pattern)) return false;
  const std::wstring wanted = pathKey(pattern);
  std::wstring key = pathKey(path);
  for (std::wstring_view rest = key;;) {
    if (wildcardMatch(rest, wanted)) return true;
    const std::size_t separator = rest.find(L'\\');
    if (separator == std::wstring_view::npos) return false;
    rest.remove_prefix(separator + 1);
  }
}

std::string printable(std::wstring_view text) {
  std::string out;
  for (const wchar_t character : text) {
    if (character >= 0x20 && character < 0x7F) {
      out += static_cast<char>(character);
    } else {
      char escaped[16];
      std::snprintf(escaped, sizeof escaped, "\\u{%x}", static_cast<unsigned>(character));
      out += escaped;
    }
  }
  return out;
}

std::wstring widen(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

}  // namespace launcher_stub::sim
