// Apart from the writing, so that a program which only reads has none of that in it.
#include <windows.h>

#include "os/durable_file.h"
#include "os/handle.h"

namespace launcher_stub::os {

bool readStateFile(const std::wstring& path, std::string& contents) {
  const OwnedHandle file =
      adoptHandle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file == nullptr) return false;

  std::string buffer(largestDurableFile + 1, '\0');  // one byte more than may be there tells a file that is too large
  std::size_t size = 0;
  DWORD count = 1;
  while (size < buffer.size() && count > 0) {
    if (!ReadFile(file.get(), buffer.data() + size, static_cast<DWORD>(buffer.size() - size), &count, nullptr)) {
      return false;
    }
    size += count;
  }
  if (size > largestDurableFile) return false;
  contents.assign(buffer, 0, size);
  return true;
}

}  // namespace launcher_stub::os
