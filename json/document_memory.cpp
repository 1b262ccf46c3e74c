#include "json/document_memory.h"

#include <algorithm>

#include "json/parser.h"

namespace launcher_stub {
namespace {

// The shortest element is two bytes of the document ("0,"), the shortest member five (`"":0,`).
constexpr std::size_t itemBytesPerInputByte =
    std::max(sizeof(JsonValue) / 2, (sizeof(JsonMember) + 2 * sizeof(KeyPlace)) / 5 + 1);

// Items that are begun and not yet read, one at each depth and one too deep; and one more for moving them.
constexpr std::size_t openItemBytes = (kMaxJsonDepth + 3) * sizeof(JsonMember);

// A multiple of the items' alignment.
constexpr std::size_t itemBytes(std::uint64_t inputLength) {
  return (inputLength + alignof(JsonMember)) / alignof(JsonMember) * alignof(JsonMember) * itemBytesPerInputByte +
         openItemBytes;
}

}  // namespace

DocumentMemory::DocumentMemory(std::uint64_t inputLength)
    : start_(static_cast<std::byte*>(::operator new(itemBytes(inputLength) + inputLength))),
      top_(start_.get()),
      closed_(start_.get() + itemBytes(inputLength)),
      text_(reinterpret_cast<char*>(closed_)) {}

}  // namespace launcher_stub
