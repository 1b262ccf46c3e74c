#include <gtest/gtest.h>

#include <algorithm>

#include "os/child_environment.h"
#include "tests/os/contract/contract_world.h"
#include "tests/simulation/sim_os.h"
#include "tests/simulation/sim_paths.h"

namespace launcher_stub::contract {

using sim::Runtime;

struct World::Body {
  sim::SimOs sim;
  std::wstring directory = L"C:\\odd \u0416\u0443\u043a \U0001F680 it's";
  std::vector<int> holds;
  std::size_t firstLine = 0;

  // Children are known to the machine by the executable that a slot would have.
  Program program(const std::string& name, const Runtime& runtime) {
    sim.install(name, runtime);
    return {sim.slotPath(name, L"entry-v1.exe"), {}};
  }
  bool runs(bool wantsGrandchild) {
    const std::vector<std::uint32_t> living = sim.processes().living();
    return std::any_of(living.begin(), living.end(),
                       [&](std::uint32_t pid) { return (sim.processes().find(pid)->start < 0) == wantsGrandchild; });
  }
};

World::World() : body_(std::make_unique<Body>()) {
  body_->sim.allowUnlockedWrites();  // the routines are tested by themselves
  body_->sim.makeDirectory(body_->directory);
}

World::~World() { releaseAll(); }

const std::wstring& World::directory() const { return body_->directory; }

void World::writeFile(const std::wstring& path, std::string_view contents) { body_->sim.writeFile(path, contents); }

void World::makeDirectory(const std::wstring& path) { body_->sim.makeDirectory(path); }

void World::makeLink(const std::wstring& link, const std::wstring& directory) {
  EXPECT_EQ(body_->sim.disk().makeLink(link, directory, body_->sim.fileTime()), 0u);
}

void World::removeFile(const std::wstring& path) { body_->sim.remove(path); }

void World::makeReadOnly(const std::wstring& path) { body_->sim.disk().attributes(path)->readOnly = true; }

void World::setLastWriteTime(const std::wstring& path, std::uint64_t hundredNanoseconds) {
  body_->sim.disk().attributes(path)->lastWriteTime = hundredNanoseconds;
}

std::optional<std::string> World::readFile(const std::wstring& path) const {
  sim::SimOs& sim = body_->sim;
  const sim::Node* node = sim.disk().find(path);
  if (node == nullptr || node->kind != sim::NodeKind::file) return std::nullopt;
  if (sim.openFiles().excludes(sim.disk().resolvedKey(path), sim::accessRead)) return std::nullopt;
  return node->contents;
}

bool World::exists(const std::wstring& path) const { return body_->sim.exists(path); }

std::vector<std::wstring> World::namesIn(const std::wstring& path) const {
  std::vector<std::wstring> names = body_->sim.names(path);
  std::sort(names.begin(), names.end());
  return names;
}

void World::hold(const std::wstring& path, Sharing sharing) {
  body_->holds.push_back(body_->sim.holdFile(path, {sharing.read, sharing.write, sharing.remove}));
}

void World::holdFor(std::uint32_t milliseconds, const std::wstring& path, Sharing sharing) {
  body_->sim.holdFor(path, milliseconds, {sharing.read, sharing.write, sharing.remove});
}

void World::releaseAll() {
  for (const int hold : body_->holds) body_->sim.release(hold);
  body_->holds.clear();
}

void World::setVariable(const std::wstring& name, const std::wstring& value) { body_->sim.setVariable(name, value); }

void World::removeVariable(const std::wstring& name) { body_->sim.removeVariable(name); }

std::vector<std::wstring> World::builtInAProcessWith(const std::vector<std::wstring>& entries) {
  for (const std::wstring& entry : entries) body_->sim.addEnvironmentEntry(entry);
  return os::splitEnvironmentBlock(os::buildChildEnvironment(L"i", L"s", L"a", 4).c_str());
}

Program World::exitsWith(std::uint32_t code) {
  return body_->program("exit" + std::to_string(code), Runtime().exitsAt(50, code));
}

Program World::runsUntilEnded() { return body_->program("sleeper", Runtime::silent()); }

Program World::startsAGrandchild() { return body_->program("tree", Runtime().startsGrandchildAt(5)); }

Program World::tellsItsEnvironment() { return body_->program("teller", Runtime().exitsAt(5, 0)); }

void World::awaitTree() {
  for (int tries = 0; tries < 100 && !(childRuns() && grandchildRuns()); ++tries) body_->sim.advance(10);
  EXPECT_TRUE(childRuns() && grandchildRuns());
}

bool World::childRuns() const { return body_->runs(false); }

bool World::grandchildRuns() const { return body_->runs(true); }

void World::endTheChildAlone(std::uint32_t code) { body_->sim.endRuntime(code); }

std::vector<std::wstring> World::toldEnvironment() { return body_->sim.starts().back().environment; }

std::uint64_t World::now() const { return body_->sim.now(); }

void World::recordLines() { body_->firstLine = body_->sim.lines().size(); }

std::vector<std::string> World::lines() const {
  const std::vector<std::string> all = body_->sim.lines();
  return {all.begin() + static_cast<std::ptrdiff_t>(body_->firstLine), all.end()};
}

}  // namespace launcher_stub::contract
