// Where the parser builds the values of one document. Internal to json/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "json/member_order.h"
#include "json/value.h"

namespace launcher_stub {

// One allocation for a whole document, large enough for whatever `inputLength` bytes can hold: about twelve bytes for
// each, most of which are never touched. Values that stand in many small allocations would take longer to allocate and
// free than to parse.
//
// From the start on grows a stack with the items of the containers that are still open. The items of a container that
// closes move to the end, below those of earlier ones, where they stay. The root's items are the bottom of the stack,
// and so the root can own the memory by owning its own items.
class DocumentMemory {
 public:
  explicit DocumentMemory(std::uint64_t inputLength);

  // Where the next decoded text goes; whoever writes moves it on, by no more than the number of bytes read.
  char*& text() { return text_; }

  // A new item on the stack.
  template <typename Item>
  Item& push() {
    Item* item = std::construct_at(reinterpret_cast<Item*>(top_));
    top_ += sizeof(Item);
    return *item;
  }

  // The first item of a container about to be opened.
  template <typename Item>
  Item* next() {
    return reinterpret_cast<Item*>(top_);
  }

  // Takes the items from `first` on off the stack: they are a closed container's.
  template <typename Item>
  JsonSequence<Item> close(Item* first);

  // Room for two places for each member on the stack.
  KeyPlace* places() { return reinterpret_cast<KeyPlace*>(top_); }

  // False: a root container has taken over the memory.
  bool isOwner() const { return start_ != nullptr; }

 private:
  struct Release {
    void operator()(std::byte* memory) const noexcept { ::operator delete(memory); }
  };

  // No item is ever destroyed: all they own is memory in here.
  std::unique_ptr<std::byte, Release> start_;
  std::byte* top_;     // end of the stack
  std::byte* closed_;  // start of the closed containers' items
  char* text_;
};

template <typename Item>
JsonSequence<Item> DocumentMemory::close(Item* first) {
  const auto count = static_cast<std::size_t>(next<Item>() - first);
  if (reinterpret_cast<std::byte*>(first) == start_.get()) {
    static_cast<void>(start_.release());
    return JsonSequence<Item>::owning(first, count, count);
  }
  for (Item* item = first + count; item != first;) {
    closed_ -= sizeof(Item);
    std::construct_at(reinterpret_cast<Item*>(closed_), std::move(*--item));
  }
  top_ = reinterpret_cast<std::byte*>(first);
  return JsonSequence<Item>::lentBy(reinterpret_cast<Item*>(closed_), count);
}

}  // namespace launcher_stub
