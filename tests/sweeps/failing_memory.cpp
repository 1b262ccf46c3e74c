#include "tests/sweeps/failing_memory.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "tests/simulation/sim_inside.h"

namespace launcher_stub::sweeps {
namespace {

bool counting = false;
std::uint64_t counted = 0;
std::uint64_t failingNumber = 0;
std::int64_t living = 0;
const std::function<void(std::uint64_t)>* watcher = nullptr;

bool isToFail() {
  if (!counting || sim::insidePlatform()) return false;
  ++counted;
  if (watcher != nullptr && *watcher) {
    const sim::InsidePlatform inside;  // what the watcher itself needs does not count
    (*watcher)(counted);
  }
  return counted == failingNumber;
}

// Null where it is to fail. `alignment`: 0 for the usual one.
void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (isToFail()) return nullptr;
  if (size == 0) size = 1;
  void* block = alignment == 0 ? std::malloc(size)
                               : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (block != nullptr) ++living;
  return block;
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  void* block = allocate(size, alignment);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void release(void* block) noexcept {
  if (block != nullptr) --living;
  std::free(block);
}

std::size_t bytes(std::align_val_t alignment) { return static_cast<std::size_t>(alignment); }

}  // namespace

AllocationCount::AllocationCount(std::uint64_t failing, std::function<void(std::uint64_t)> watch)
    : watch_(std::move(watch)) {
  counted = 0;
  failingNumber = failing;
  watcher = &watch_;
  counting = true;
}

AllocationCount::~AllocationCount() {
  counting = false;
  watcher = nullptr;
}

std::uint64_t AllocationCount::count() const { return counted; }

std::int64_t livingBlocks() { return living; }

}  // namespace launcher_stub::sweeps

using namespace launcher_stub::sweeps;

void* operator new(std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new[](std::size_t size) { return allocateOrThrow(size, 0); }
void* operator new(std::size_t size, std::align_val_t alignment) { return allocateOrThrow(size, bytes(alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return allocateOrThrow(size, bytes(alignment)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size, 0); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, bytes(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, bytes(alignment));
}

void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { release(block); }
