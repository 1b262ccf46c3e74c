// Open files and who they keep out.
#pragma once

#include <map>
#include <string>

namespace launcher_stub::sim {

// What an open asks for, and what it lets others do meanwhile. `remove` stands for deleting and renaming.
struct Access {
  bool read = false;
  bool write = false;
  bool remove = false;
};
constexpr Access accessNone{};
constexpr Access accessRead{true, false, false};
constexpr Access accessWrite{false, true, false};
constexpr Access accessReadWrite{true, true, false};
constexpr Access accessAll{true, true, true};

// An open file object: several handles, also of several processes, may refer to one.
struct OpenFile {
  std::wstring key;  // of the file; empty once the file has been deleted or replaced
  Access access;
  Access share;
  int references = 0;
  std::string holder;  // for messages
};

class OpenFiles {
 public:
  // The new object's number (1 and up), with one reference; 0 for a sharing violation.
  int open(const std::wstring& key, Access access, Access share, const std::string& holder);

  void addReference(int file);
  void release(int file);  // with its last reference an object is closed

  // True when an open of this kind, which itself shares everything, would be kept out.
  bool excludes(const std::wstring& key, Access access) const;

  // The file is gone; what is still open goes on without it.
  void detach(const std::wstring& key);

  const OpenFile* find(int file) const;
  int openCount() const { return static_cast<int>(files_.size()); }

 private:
  std::map<int, OpenFile> files_;
  int last_ = 0;
};

}  // namespace launcher_stub::sim
