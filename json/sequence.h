// The container under the document value.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace launcher_stub {

// A sequence of bytes, elements or members. It owns its items, or they lie in the memory of a parsed document, which
// the document's top value owns: a document of thousands of values is one allocation, and ends with one. A copy owns
// its items whatever they are a copy of. Moving leaves the source empty. At most 2^32 - 1 items.
template <typename Item>
class JsonSequence {
 public:
  JsonSequence() = default;
  JsonSequence(std::initializer_list<Item> items) : JsonSequence() { append(items.begin(), items.size()); }
  JsonSequence(const JsonSequence& other) : JsonSequence() { append(other.first_, other.size_); }
  JsonSequence(JsonSequence&& other) noexcept
      : first_(std::exchange(other.first_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        capacity_(std::exchange(other.capacity_, 0)) {}
  JsonSequence& operator=(const JsonSequence& other) {
    if (this != &other) *this = JsonSequence(other);
    return *this;
  }
  JsonSequence& operator=(JsonSequence&& other) noexcept {
    JsonSequence taken(std::move(other));
    std::swap(first_, taken.first_);
    std::swap(size_, taken.size_);
    std::swap(capacity_, taken.capacity_);
    return *this;
  }
  ~JsonSequence() {
    if (capacity_ == 0) return;
    std::destroy_n(first_, size_);
    ::operator delete(first_);
  }

  // `count` items at `first`, which must live longer than this sequence.
  static JsonSequence lentBy(Item* first, std::size_t count) noexcept { return JsonSequence(first, count, 0); }
  // The same in memory that `::operator new` gave, with room for `capacity` (not zero) of them; it is owned from now
  // on.
  static JsonSequence owning(Item* first, std::size_t count, std::size_t capacity) noexcept {
    return JsonSequence(first, count, capacity);
  }

  const Item* begin() const { return first_; }
  const Item* end() const { return first_ + size_; }
  std::size_t size() const { return size_; }
  const Item& front() const { return *first_; }

  template <typename... Arguments>
  void emplace_back(Arguments&&... arguments) {
    push_back(Item(std::forward<Arguments>(arguments)...));
  }
  void push_back(Item item) { insert(size_, std::move(item)); }

  // In front of the item at `index`, or at the end.
  void insert(std::size_t index, Item item) {
    if (size_ >= capacity_) reserve(std::max<std::size_t>(4, 2 * std::size_t{size_}));
    std::construct_at(first_ + size_, std::move(item));
    ++size_;
    for (Item* place = first_ + size_ - 1; place != first_ + index; --place) std::swap(*place, *(place - 1));
  }

  void append(const Item* items, std::size_t count) {
    if (count == 0) return;
    reserve(size_ + count);
    for (std::size_t i = 0; i < count; ++i, ++size_) std::construct_at(first_ + size_, items[i]);
  }

  bool operator==(const JsonSequence& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }

 private:
  JsonSequence(Item* first, std::size_t count, std::size_t capacity) noexcept
      : first_(first), size_(static_cast<std::uint32_t>(count)), capacity_(static_cast<std::uint32_t>(capacity)) {}

  // Makes the items owned, too.
  void reserve(std::size_t capacity) {
    if (capacity > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
    auto* items = static_cast<Item*>(::operator new(capacity * sizeof(Item)));
    std::uninitialized_move_n(first_, size_, items);  // does not throw
    *this = JsonSequence(items, size_, capacity);
  }

  Item* first_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = 0;  // 0: not the owner
};

}  // namespace launcher_stub
