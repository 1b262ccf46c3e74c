// Clock, chance, texts, the own process, the two reporting channels.
#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "os/clock.h"
#include "os/command_line.h"
#include "os/environment.h"
#include "os/error_box.h"
#include "os/handle.h"
#include "os/log.h"
#include "os/random.h"
#include "os/text.h"
#include "os/this_process.h"
#include "tests/simulation/sim_inside.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::os {

using sim::Call;
using sim::SimOs;

std::uint64_t monotonicMilliseconds() { return SimOs::current().now(); }

void sleepMilliseconds(std::uint32_t duration) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  (void)sim.begin(Call::sleep);  // cannot fail
  if (sim.launcherDead()) return;
  if (sim.launcherHolds(L"state.lock")) sim.problem("a sleep while state.lock is held");
  sim.observer().sleeps();
  if (sim.tracing()) sim.note(Call::sleep, {}, std::to_string(duration));
  sim.advance(duration);
}

std::string randomHexDigits() {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  if (sim.begin(Call::random) != 0) throw std::runtime_error("no randomness");
  std::string digits;
  for (int half = 0; half < 2; ++half) {
    std::uint64_t bits = sim.randomBits();
    for (int i = 0; i < 16; ++i, bits >>= 4) digits += "0123456789abcdef"[bits & 15];
  }
  return digits;
}

void HandleCloser::operator()(void* handle) const noexcept {
  const sim::InsidePlatform inside;
  SimOs::current().closeHandle(handle);
}

OwnedHandle adoptHandle(void* raw) noexcept {
  if (raw == nullptr || sim::HandleTable::valueOf(raw) == ~std::uintptr_t{0}) return nullptr;
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  sim::HandleEntry* entry = sim.handles().find(raw);
  if (entry == nullptr) {
    sim.problem("a handle is adopted that was never given out");
  } else if (entry->owned || !entry->open) {
    sim.problem("a handle is adopted that is owned or closed: " + sim::HandleTable::describe(*entry));
  } else {
    entry->owned = true;
  }
  return OwnedHandle(raw);
}

std::wstring readEnvironmentVariable(const std::wstring& name) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  if (sim.begin(Call::environmentVariable, name) != 0) return {};
  const std::wstring wanted = sim::pathKey(name);
  for (const std::wstring& entry : sim.environment()) {
    const std::size_t end = entry.find(L'=', 1);
    if (end != std::wstring::npos && sim::pathKey(entry.substr(0, end)) == wanted) return entry.substr(end + 1);
  }
  return {};
}

std::vector<std::wstring> readCommandLineArguments() {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  return sim.begin(Call::commandLine) != 0 ? std::vector<std::wstring>() : sim.arguments();
}

void containThisProcess() {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  const std::uint32_t error = sim.begin(Call::containProcess);
  sim.process().contained = sim.process().contained || error == 0;
  sim.process().containmentRefused = error != 0;
  sim.note(Call::containProcess, {}, error == 0 ? "" : "refused");
}

std::wstring launcherExecutablePath() {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  return sim.begin(Call::executablePath) != 0 ? std::wstring() : sim.executablePath();
}

// Not part of a simulated life: the entry point, its only caller, is modelled by the simulation itself.
void endThisProcessQuietly() noexcept { std::_Exit(3); }

void logLine(std::string_view message) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  const std::uint32_t error = sim.begin(Call::logLine);
  if (sim.launcherDead()) return;
  sim.note(Call::logLine, {}, message);
  if (error == 0) sim.recordLine(message);
}

void showError(const std::string& message) {
  const sim::InsidePlatform inside;
  logLine(message);
  SimOs& sim = SimOs::current();
  const std::uint32_t error = sim.begin(Call::showError);
  if (sim.launcherDead() || sim.process().box >= 0) return;
  if (error != 0) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  sim.openBox(toUtf8(toWide(message)));
  sim.note(Call::showError, {}, message);
}

void waitForErrorBox(std::uint32_t timeout) {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  (void)sim.begin(Call::waitForErrorBox);
  const std::uint64_t deadline = sim.now() + timeout;
  // The test may close the box meanwhile, so its end is looked up anew at each moment at which something happens.
  while (!sim.launcherDead() && sim.openedBox() != nullptr && sim.openedBox()->closesAt > sim.now() &&
         sim.now() < deadline) {
    sim.advance(std::min<std::uint64_t>({sim.openedBox()->closesAt - sim.now(), deadline - sim.now(), 100}));
  }
  sim.note(Call::waitForErrorBox, {}, std::to_string(timeout));
}

void resetErrorBoxForTests() {
  const sim::InsidePlatform inside;
  SimOs& sim = SimOs::current();
  const sim::Box* box = sim.openedBox();
  if (box != nullptr && box->closesAt != sim::forever && box->closesAt > sim.now()) {
    sim.advance(box->closesAt - sim.now());
  }
  sim.process().box = -1;
}

}  // namespace launcher_stub::os
