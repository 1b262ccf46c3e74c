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
  int object = 0;  // number of the open file, process id, number of the job
  bool open = true;
  bool owned = false;     // an OwnedHandle has taken it over
  bool bySystem = false;  // closed by the end of the process; the owner's own close, on its way out, is no mistake
};

// A handle is a number that is never given out twice, so that every wrong use is recognised. The numbers are the same
// in every run of the same steps.
class HandleTable {
 public:
  void* make(HandleKind kind, int object);

  // Null where the value was never given out.
  HandleEntry* find(void* handle);

  // Null where the value is not an open handle of that kind.
  HandleEntry* findOpen(void* handle, HandleKind kind);

  std::vector<HandleEntry*> openHandles();  // in the order in which they were made
  void close(HandleEntry& entry);
  void* handleOf(const HandleEntry& entry) const;
  static std::string describe(const HandleEntry& entry);
  static std::uint64_t valueOf(void* handle);

 private:
  std::vector<HandleEntry> entries_;
  std::set<std::size_t> open_;  // indices: a long life closes far more handles than are ever open
};

}  // namespace launcher_stub::sim
