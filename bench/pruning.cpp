// Prunes a tree of old attempts, or removes it by a bare loop over the system's calls, and writes the microseconds that
// this took.
//
// bench_pruning ROOT OUTPUT pruned|bare
//   ROOT\attempts holds directories, with files in them or not. Pruning keeps one of them.

#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "slots/attempt_pruning.h"

namespace {

double microseconds() {
  LARGE_INTEGER now{};
  LARGE_INTEGER frequency{};
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&frequency);
  return static_cast<double>(now.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart);
}

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

// Every entry of a directory, removed as it is found.
template <typename Remove>
void forEachEntry(const std::wstring& directory, const Remove& remove) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW((directory + L"\\*").c_str(), &found);
  require(search != INVALID_HANDLE_VALUE, "cannot list");
  do {
    const std::wstring name = found.cFileName;
    if (name != L"." && name != L"..") remove(directory + L"\\" + name);
  } while (FindNextFileW(search, &found));
  FindClose(search);
}

// Files are listed and deleted only where the directory does not go at once.
void removeBare(const std::wstring& root) {
  forEachEntry(root + L"\\attempts", [&](const std::wstring& attempt) {
    if (RemoveDirectoryW(attempt.c_str())) return;
    forEachEntry(attempt, [](const std::wstring& file) { DeleteFileW(file.c_str()); });
    require(RemoveDirectoryW(attempt.c_str()), "cannot remove an attempt");
  });
}

int entriesOf(const std::wstring& directory) {
  int count = 0;
  forEachEntry(directory, [&](const std::wstring&) { ++count; });
  return count;
}

double measure(const std::wstring& root, bool prunes) {
  const double start = microseconds();
  if (prunes) {
    launcher_stub::pruneAttempts(root, L"none");
  } else {
    removeBare(root);
  }
  const double taken = microseconds() - start;
  require(entriesOf(root + L"\\attempts") == (prunes ? 1 : 0), "pruning keeps one, the loop none");
  return taken;
}

}  // namespace

extern "C" int wmain(int argc, wchar_t** argv);
extern "C" int wmain(int argc, wchar_t** argv) {
  if (argc != 4) return 2;
  std::FILE* output = _wfopen(argv[2], L"w");
  if (output == nullptr) return 2;
  try {
    std::fprintf(output, "%.1f\n", measure(argv[1], std::wstring(argv[3]) == L"pruned"));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return std::fclose(output);
}
