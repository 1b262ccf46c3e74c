// What the program that starts and the child that is started say to each other: a named piece of shared memory and two
// events. Times are counts of the performance counter, which is one for the whole machine.
#pragma once

namespace bench {

struct Notes {
  long long firstInstruction;
  long long lastInstruction;
};

inline constexpr wchar_t notesName[] = L"launcher_bench_notes";
inline constexpr wchar_t begunName[] = L"launcher_bench_begun";  // set by the child
inline constexpr wchar_t endName[] = L"launcher_bench_end";      // set for the child: it ends

}  // namespace bench
