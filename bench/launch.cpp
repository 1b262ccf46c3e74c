// Starts programs in turn, many times over, and prints for each round and program, in microseconds: from the call of
// CreateProcessW to the first instruction of the child at the end of the chain, and from the child's last instruction
// to the end of the started program.
//
// bench_launch ROUNDS WARM_UP_ROUNDS OUTPUT NAME=PROGRAM...
//   A name that begins with "launcher" means a program that has to see the child's marker before the child ends.
// Each line of the output: "NAME TO_FIRST_INSTRUCTION FROM_LAST_INSTRUCTION".

#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/notes.h"

namespace {

constexpr DWORD patienceMs = 60'000;
constexpr DWORD markerSeenAfterMs = 320;  // a tick and some
constexpr DWORD tickMs = 250;

struct Program {
  std::wstring name;
  std::wstring path;
};

long long counter() {
  LARGE_INTEGER now{};
  QueryPerformanceCounter(&now);
  return now.QuadPart;
}

double toMicroseconds(long long counts) {
  LARGE_INTEGER frequency{};
  QueryPerformanceFrequency(&frequency);
  return static_cast<double>(counts) * 1e6 / static_cast<double>(frequency.QuadPart);
}

void waitFor(HANDLE object, const char* what) {
  if (WaitForSingleObject(object, patienceMs) != WAIT_OBJECT_0) throw std::runtime_error(what);
}

struct Times {
  double toFirst = 0;
  double fromLast = 0;
};

class Measurement {
 public:
  Measurement()
      : memory_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(bench::Notes),
                                   bench::notesName)),
        begun_(CreateEventW(nullptr, TRUE, FALSE, bench::begunName)),
        end_(CreateEventW(nullptr, TRUE, FALSE, bench::endName)) {
    notes_ = static_cast<bench::Notes*>(MapViewOfFile(memory_, FILE_MAP_WRITE, 0, 0, sizeof(bench::Notes)));
    if (notes_ == nullptr) throw std::runtime_error("no shared memory");
  }

  // `round`: the child lives a different part of a tick longer in each of them.
  Times run(const Program& program, int round) {
    ResetEvent(begun_);
    ResetEvent(end_);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const long long start = counter();
    if (!CreateProcessW(program.path.c_str(), nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
      throw std::runtime_error("cannot start a program");
    }
    waitFor(begun_, "the child has not begun");
    if (program.name.starts_with(L"launcher")) Sleep(markerSeenAfterMs + static_cast<DWORD>(round) * 97 % tickMs);
    SetEvent(end_);
    waitFor(process.hProcess, "the program has not ended");
    const long long ended = counter();
    DWORD code = 1;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (code != 0) throw std::runtime_error("the program has failed");
    return {toMicroseconds(notes_->firstInstruction - start), toMicroseconds(ended - notes_->lastInstruction)};
  }

 private:
  HANDLE memory_;
  HANDLE begun_;
  HANDLE end_;
  bench::Notes* notes_;
};

void measure(int rounds, int warmUp, const std::vector<Program>& programs, std::FILE* output) {
  Measurement measurement;
  for (int round = -warmUp; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < programs.size(); ++turn) {
      // Another one begins in each round: whoever comes after the longest one has no advantage from it.
      const auto first = static_cast<std::size_t>(round + warmUp);
      const Program& program = programs[(turn + first) % programs.size()];
      const Times times = measurement.run(program, round + warmUp);
      if (round >= 0) std::fprintf(output, "%ls %.1f %.1f\n", program.name.c_str(), times.toFirst, times.fromLast);
    }
  }
}

}  // namespace

extern "C" int wmain(int argc, wchar_t** argv);
extern "C" int wmain(int argc, wchar_t** argv) {
  if (argc < 5) return 2;
  std::vector<Program> programs;
  for (int i = 4; i < argc; ++i) {
    const std::wstring argument = argv[i];
    const std::size_t equals = argument.find(L'=');
    programs.push_back({argument.substr(0, equals), argument.substr(equals + 1)});
  }
  std::FILE* output = _wfopen(argv[3], L"w");
  if (output == nullptr) return 2;
  try {
    measure(_wtoi(argv[1]), _wtoi(argv[2]), programs, output);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return std::fclose(output);
}
