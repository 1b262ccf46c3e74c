// How much is tried. Under the sanitizers each step costs many times as much: there the sweeps see to it that every
// kind of step is clean, and the optimised build tries everything.
#pragma once

namespace launcher_stub::sweeps {

#ifdef __SANITIZE_ADDRESS__
constexpr bool thorough = false;
#else
constexpr bool thorough = true;
#endif

}  // namespace launcher_stub::sweeps
