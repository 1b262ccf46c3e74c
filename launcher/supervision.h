// The loop that watches the running runtime.
#pragma once

#include <cstdint>

#include "slots/launch_context.h"

namespace launcher_stub {

constexpr std::uint32_t tickPeriodMs = 250;

enum class SupervisionEnd { exit, relaunch };

// Ticks until the run ends (`context.exitCode` is its code) or a relaunch was asked for.
SupervisionEnd superviseRuntime(LaunchContext& context);

}  // namespace launcher_stub
