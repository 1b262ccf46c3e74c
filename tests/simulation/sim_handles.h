// The handles of the launcher's process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace launcher_stub::sim {

enum class HandleKind { file, process, job };

struct HandleEntry {
  HandleKind kind = HandleKind::file;
  int run = 0;     // of the launcher whose handle it is
  int object = 0;  // number of the open file, process id, number of the job
  bool open = true;
  bool owned = false;     // an OwnedHandle has taken it over
  bool bySystem = false;  // closed by the end of the process; the owner's own close, on its way out, is no mistake
};

// A handle is a number that is never given out twice, so that every wrong use is recognised. The numbers are the same
// in every run of the same steps.
class HandleTable {
 public:
  void* make(HandleKind kind, int object, int run);

  // Null where the value was never given out.
  HandleEntry* find(void* handle);

  // Null where the value is not an open handle of that kind.
  HandleEntry* findOpen(void* handle, HandleKind kind);

  std::vector<HandleEntry*> openHandles(int run);  // in the order in which they were made

  // True when `predicate` holds for the number of one of the run's open files.
  template <typename Predicate>
  bool anyOpenFile(int run, const Predicate& predicate) const {
    for (const std::size_t index : open_) {
      const HandleEntry& entry = entries_[index];
      if (entry.run == run && entry.kind == HandleKind::file && predicate(entry.object)) return true;
    }
    return false;
  }

  void close(HandleEntry& entry);
  void* handleOf(const HandleEntry& entry) const;
  static std::string describe(const HandleEntry& entry);
  static std::uint64_t valueOf(void* handle);

 private:
  std::vector<HandleEntry> entries_;
  std::set<std::size_t> open_;  // indices: a long life closes far more handles than are ever open
};

}  // namespace launcher_stub::sim
