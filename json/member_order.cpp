#include "json/member_order.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>

namespace launcher_stub {
namespace {

// Fewer are sorted by insertion.
constexpr std::size_t fewMembers = 40;

// --- Places ---

constexpr std::size_t bytesInPlace = 7;

// The key's bytes from `offset` on, seven of them, the first one highest, with zeros behind a shorter key; then, in the
// lowest byte, how many of them there are, and 8 where the key goes on. So two places are in order as their keys are,
// unless both say 8 and are equal.
std::uint64_t wordAt(std::string_view key, std::size_t offset) {
  const std::string_view rest = key.substr(std::min(offset, key.size()));
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < bytesInPlace; ++i) {
    word = (word | (i < rest.size() ? static_cast<unsigned char>(rest[i]) : 0u)) << 8;
  }
  return word | std::min(rest.size(), bytesInPlace + 1);
}

bool goesOn(const KeyPlace& place) { return (place.word & 0xFF) > bytesInPlace; }

std::string_view keyOf(const JsonMember& member) { return member.key; }

bool areAscending(const JsonMember* members, std::size_t count) {
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view key = keyOf(members[i]);
    const std::uint64_t word = wordAt(key, 0);
    if (word < last || (word == last && i > 0 && keyOf(members[i - 1]) >= key)) return false;
    last = word;
  }
  return true;
}

// Sorts by words in a fixed number of passes, whatever they are: a sort by comparison takes longest for the many short
// keys that a hostile document can hold. `spare`: room for as many places.
void sortByWord(KeyPlace* places, KeyPlace* spare, std::size_t count) {
  constexpr std::size_t digits = sizeof(KeyPlace::word);
  const auto digitOf = [](const KeyPlace& place, std::size_t digit) { return place.word >> 8 * digit & 0xFF; };
  std::array<std::array<std::uint32_t, 256>, digits> counts{};
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t digit = 0; digit < digits; ++digit) ++counts[digit][digitOf(places[i], digit)];
  }
  KeyPlace* from = places;
  KeyPlace* to = spare;
  for (std::size_t digit = 0; digit < digits; ++digit) {
    if (counts[digit][digitOf(places[0], digit)] == count) continue;  // the same everywhere
    std::uint32_t sum = 0;
    for (std::uint32_t& entry : counts[digit]) sum += std::exchange(entry, sum);  // now: where its first one goes
    for (std::size_t i = 0; i < count; ++i) to[counts[digit][digitOf(from[i], digit)]++] = from[i];
    std::swap(from, to);
  }
  if (from != places) std::copy_n(from, count, places);
}

// For few places. False: two keys are the same.
bool sortByInsertion(const JsonMember* members, KeyPlace* places, std::size_t count) {
  for (std::size_t sorted = 1; sorted < count; ++sorted) {
    const KeyPlace place = places[sorted];
    const std::string_view key = keyOf(members[place.index]);
    std::size_t target = sorted;
    for (; target > 0 && places[target - 1].word >= place.word; --target) {
      const KeyPlace& other = places[target - 1];
      if (other.word == place.word) {
        const int order = keyOf(members[other.index]).compare(key);
        if (order == 0) return false;
        if (order < 0) break;
      }
      places[target] = other;
    }
    places[target] = place;
  }
  return true;
}

// Sorts places whose keys have the bytes before `offset` in common. False: two keys are the same.
bool sortPlaces(const JsonMember* members, KeyPlace* places, KeyPlace* spare, std::size_t count, std::size_t offset) {
  for (std::size_t i = 0; i < count; ++i) places[i].word = wordAt(keyOf(members[places[i].index]), offset);
  if (count < fewMembers) return sortByInsertion(members, places, count);
  sortByWord(places, spare, count);
  for (std::size_t start = 0, end = 0; start < count; start = end) {
    while (end < count && places[end].word == places[start].word) ++end;
    if (end - start == 1) continue;
    if (!goesOn(places[start])) return false;
    if (!sortPlaces(members, places + start, spare, end - start, offset + bytesInPlace)) return false;
  }
  return true;
}

// Puts the member that `places[i]` names at i, for all i.
void moveToPlaces(JsonMember* members, std::size_t count, KeyPlace* places) {
  for (std::uint32_t start = 0; start < count; ++start) {
    if (places[start].index == start) continue;
    JsonMember first = std::move(members[start]);
    std::uint32_t gap = start;
    while (places[gap].index != start) {
      const std::uint32_t source = std::exchange(places[gap].index, gap);
      members[gap] = std::move(members[source]);
      gap = source;
    }
    places[gap].index = gap;
    members[gap] = std::move(first);
  }
}

}  // namespace

bool sortMembers(JsonMember* members, std::size_t count, KeyPlace* places) {
  if (areAscending(members, count)) return true;  // as our own writer leaves them
  KeyPlace* const spare = places + count;
  for (std::size_t i = 0; i < count; ++i) {
    std::construct_at(places + i, KeyPlace{.word = 0, .index = static_cast<std::uint32_t>(i)});
    std::construct_at(spare + i);
  }
  if (!sortPlaces(members, places, spare, count, 0)) return false;
  moveToPlaces(members, count, places);
  return true;
}

}  // namespace launcher_stub
