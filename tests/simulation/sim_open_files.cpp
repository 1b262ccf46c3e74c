#include "tests/simulation/sim_open_files.h"

namespace launcher_stub::sim {
namespace {

// What one side wants and the other does not share.
bool collides(Access wanted, Access shared) {
  return (wanted.read && !shared.read) || (wanted.write && !shared.write) || (wanted.remove && !shared.remove);
}

}  // namespace

int OpenFiles::open(const std::wstring& key, Access access, Access share, const std::string& holder) {
  for (const auto& [number, file] : files_) {
    if (file.key == key && (collides(access, file.share) || collides(file.access, share))) return 0;
  }
  files_[++last_] = OpenFile{key, access, share, 1, holder};
  return last_;
}

void OpenFiles::addReference(int file) { ++files_.at(file).references; }

void OpenFiles::release(int file) {
  const auto found = files_.find(file);
  if (found != files_.end() && --found->second.references == 0) files_.erase(found);
}

bool OpenFiles::excludes(const std::wstring& key, Access access) const {
  for (const auto& [number, file] : files_) {
    if (file.key == key && collides(access, file.share)) return true;
  }
  return false;
}

void OpenFiles::detach(const std::wstring& key) {
  for (auto& [number, file] : files_) {
    if (file.key == key) file.key.clear();
  }
}

const OpenFile* OpenFiles::find(int file) const {
  const auto found = files_.find(file);
  return found == files_.end() ? nullptr : &found->second;
}

}  // namespace launcher_stub::sim
