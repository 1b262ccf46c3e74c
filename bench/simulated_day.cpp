// A day of supervision on the simulated machine, 345,600 ticks: the launcher's own allocations and handles at its
// start and at its end, the files it looks at in each tick, and the time that its own code takes.
//
// Prints a line for each kind of day: "NAME TICKS NS_PER_TICK BYTES_FIRST BYTES_LAST BLOCKS_FIRST BLOCKS_LAST
// HANDLES_FIRST HANDLES_LAST FILES_OPENED". Bytes and blocks are those that the launcher's code holds.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"

namespace {

using namespace launcher_stub;
using namespace launcher_stub::sim;

std::int64_t liveBytes = 0;
std::int64_t liveBlocks = 0;
bool counting = false;

// In front of each block: its size, if it belongs to the code under test; else 0.
constexpr std::size_t headerSize = alignof(std::max_align_t);

void* allocate(std::size_t size) {
  auto* memory = static_cast<char*>(std::malloc(size + headerSize));
  if (memory == nullptr) throw std::bad_alloc();
  const bool counted = counting && !insidePlatform();
  *reinterpret_cast<std::size_t*>(memory) = counted ? size : 0;
  if (counted) {
    liveBytes += static_cast<std::int64_t>(size);
    ++liveBlocks;
  }
  return memory + headerSize;
}

void release(void* block) {
  if (block == nullptr) return;
  char* memory = static_cast<char*>(block) - headerSize;
  if (const std::size_t size = *reinterpret_cast<std::size_t*>(memory); size != 0) {
    liveBytes -= static_cast<std::int64_t>(size);
    --liveBlocks;
  }
  std::free(memory);
}

constexpr std::uint64_t ticksOfADay = 345'600;
constexpr std::uint64_t firstTick = 8;  // everything that comes once has come

struct Snapshot {
  std::int64_t bytes = 0;
  std::int64_t blocks = 0;
  std::size_t handles = 0;
  int filesOpened = 0;
  std::chrono::steady_clock::time_point time;
};

class Watcher : public Observer {
 public:
  explicit Watcher(SimOs& sim) : sim_(sim) {}
  void sleeps() override {
    ++ticks_;
    if (ticks_ == firstTick) first = take();
    if (ticks_ == ticksOfADay) last = take();
  }
  std::uint64_t ticks() const { return ticks_; }

  Snapshot first;
  Snapshot last;

 private:
  Snapshot take() const {
    return {liveBytes, liveBlocks, sim_.handles().openHandles(sim_.process().run).size(), sim_.count(Call::readFile),
            std::chrono::steady_clock::now()};
  }

  SimOs& sim_;
  std::uint64_t ticks_ = 0;
};

bool runDay(const char* name, const Runtime& runtime) {
  SimOs sim;
  sim.setTracing(false);
  sim.setTimeLimit(2 * ticksOfADay * 250);
  sim.installSeed(runtime);
  sim.install("aaaa", runtime);
  BootState state;
  state.generation = 5;
  state.active = "aaaa";
  sim.writeBootState(state);

  Watcher watcher(sim);
  sim.observe(&watcher);
  counting = true;
  sim.killLauncherAt(sim.now() + (ticksOfADay + 4) * 250);
  sim.runLauncher();
  counting = false;
  sim.observeNoLonger();

  const auto taken = std::chrono::duration<double, std::nano>(watcher.last.time - watcher.first.time).count();
  const auto ticks = static_cast<double>(ticksOfADay - firstTick);
  const Snapshot& a = watcher.first;
  const Snapshot& b = watcher.last;
  std::printf("%s %llu %.0f %lld %lld %lld %lld %zu %zu %d\n", name,
              static_cast<unsigned long long>(ticksOfADay - firstTick), taken / ticks, static_cast<long long>(a.bytes),
              static_cast<long long>(b.bytes), static_cast<long long>(a.blocks), static_cast<long long>(b.blocks),
              a.handles, b.handles, b.filesOpened - a.filesOpened);
  return watcher.ticks() >= ticksOfADay && sim.takeProblems().empty();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }

int main() {
  const bool waited = runDay("waiting", Runtime());
  const bool idle = runDay("settled", Runtime().readyAt(300));
  return waited && idle ? 0 : 1;
}
