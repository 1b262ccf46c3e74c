// What the tests of the promises in os/*.h need beside those headers. One declaration, two bodies: the simulated
// machine natively, the real system in the Windows program. The tests themselves know neither.
//
// Everything here goes around the code under test: another opener, another process, the environment, the clock.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace launcher_stub::contract {

// What an opener lets everybody else do meanwhile. `remove` stands for deleting, renaming and replacing.
struct Sharing {
  bool read = false;
  bool write = false;
  bool remove = false;
};
constexpr Sharing shareNothing{};
constexpr Sharing shareReading{true, false, false};
constexpr Sharing shareAllButReading{false, true, true};
constexpr Sharing shareAllButRemoving{true, true, false};
constexpr Sharing shareEverything{true, true, true};

// Something that can be started as a child.
struct Program {
  std::wstring executable;
  std::vector<std::wstring> arguments;
};

// A machine with an empty directory to work in. One at a time. Functions without a result record a failure of the
// running test where they cannot do what they are asked.
class World {
 public:
  World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  ~World();

  const std::wstring& directory() const;
  std::wstring operator/(std::wstring_view name) const { return directory() + L"\\" + std::wstring(name); }

  // --- Files, as another process works with them ---

  void writeFile(const std::wstring& path, std::string_view contents);
  void makeDirectory(const std::wstring& path);
  void makeLink(const std::wstring& link, const std::wstring& directory);  // leads to that directory
  void removeFile(const std::wstring& path);
  void makeReadOnly(const std::wstring& path);
  void setLastWriteTime(const std::wstring& path, std::uint64_t hundredNanoseconds);
  std::optional<std::string> readFile(const std::wstring& path) const;  // none: missing, or an opener shares no reading
  bool exists(const std::wstring& path) const;
  std::vector<std::wstring> namesIn(const std::wstring& path) const;  // sorted

  // Another opens the file or directory for reading: until `releaseAll`, or for a time that passes by itself.
  void hold(const std::wstring& path, Sharing sharing);
  void holdFor(std::uint32_t milliseconds, const std::wstring& path, Sharing sharing);
  void releaseAll();

  // --- The environment of this process; put back at the end ---

  void setVariable(const std::wstring& name, const std::wstring& value);
  void removeVariable(const std::wstring& name);

  // The entries of the block that buildChildEnvironment gives in a process which was started with these entries
  // ("NAME=value") behind all others, as they are: also with names that differ only in case.
  std::vector<std::wstring> builtInAProcessWith(const std::vector<std::wstring>& entries);

  // --- Children ---

  Program exitsWith(std::uint32_t code);
  Program runsUntilEnded();
  Program startsAGrandchild();  // and goes on until it is ended, as does the grandchild
  Program tellsItsEnvironment();

  // Of the tree that was begun last: waits until both processes run, and keeps an eye on them.
  void awaitTree();
  bool childRuns() const;
  bool grandchildRuns() const;
  void endTheChildAlone(std::uint32_t code);  // from outside

  // The entries that the last such program found in its environment, in their order. Waits for it.
  std::vector<std::wstring> toldEnvironment();

  // --- Time, and what was said ---

  // Milliseconds of a clock other than the one under test, where there is another; only differences mean anything.
  std::uint64_t now() const;
  static constexpr std::uint64_t clockStepMs = 32;  // two ticks of the coarsest such clock

  void recordLines();                      // the diagnostic lines from here on
  std::vector<std::string> lines() const;  // without their line ends

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace launcher_stub::contract
