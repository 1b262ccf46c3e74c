// An update from the runtime to itself: a copy of it is staged as a slot and asked for, and has to become the active
// one.

#include "conformance/launch.h"
#include "conformance/runs.h"
#include "state/boot_state.h"
#include "state/launcher_model.h"

namespace conformance {
namespace {

constexpr std::uint32_t startLimitMs = 30'000;
constexpr std::uint64_t promotionSlackMs = 15'000;  // beside the 60 s: for the launcher's ticks on a busy machine
const std::string candidate = "c0ffee01";

std::string seconds(std::uint64_t duration) { return std::to_string(duration / 1000) + " s"; }

std::string endOf(const Launch& launch) {
  const auto code = launch.runtime() == nullptr ? std::nullopt : launch.runtime()->exitCode();
  return code ? " (exit code " + std::to_string(*code) + ")" : std::string();
}

Finding judgeHealthy(Launch& launch, const Options& options) {
  Marker marker;
  const std::uint64_t begin = milliseconds();
  bool ended = false;
  (void)launch.waitUntil(
      [&] {
        marker = launch.marker(L"healthy-v1");
        ended = launch.runtimeHasEnded() || launch.isOver();
        return marker.form == Marker::Form::right || marker.form == Marker::Form::foreign || ended;
      },
      options.healthyWithin);
  const std::string after = std::to_string(milliseconds() - begin) + " ms";
  if (marker.form == Marker::Form::right) return {Verdict::passed, "after " + after};
  if (marker.form != Marker::Form::missing) return {Verdict::failed, marker.detail};
  return {Verdict::failed,
          ended ? "ended after " + after + " without healthy-v1" + endOf(launch) : "no healthy-v1 after " + after};
}

bool isPromoted(const Installation& installation) {
  std::string document;
  std::string error;
  launcher_stub::BootState state;
  return readFile(installation.stateRoot() + L"\\boot-v1.json", document) == 0 &&
         readBootState(document, state, error) && state.active == candidate;
}

Finding judgeUpdate(Launch& launch, const Installation& installation) {
  const std::uint64_t begin = milliseconds();
  bool promoted = false;
  bool ended = false;
  (void)launch.waitUntil(
      [&] {
        promoted = isPromoted(installation);
        ended = launch.runtimeHasEnded() || launch.isOver();
        return promoted || ended;
      },
      launcher_stub::soakMs + promotionSlackMs);
  const std::string after = seconds(milliseconds() - begin) + " after healthy-v1";
  if (promoted) return {Verdict::passed, "promoted " + after};
  if (ended) return {Verdict::failed, "ended " + after + endOf(launch) + "; a candidate has to run for 60 s"};
  return {Verdict::failed, "not promoted " + after};
}

}  // namespace

bool runAsCandidate(const Options& options, Findings& findings, std::string& problem) {
  Installation installation(options);
  Launch launch(installation, options);
  if (!installation.layOut(problem) || !installation.leaveUpdate(candidate, problem) || !launch.start(problem)) {
    return false;
  }
  (void)launch.waitUntil([&] { return !launch.attempts().empty() || launch.isOver(); }, startLimitMs);
  if (launch.attempts().empty() || launch.attempts().front().slot != candidate) {
    const Finding finding = {Verdict::notJudged, "the launcher did not start the candidate"};
    findings[Duty::healthy] = finding;
    findings[Duty::update] = finding;
    return true;
  }
  const Finding healthy = judgeHealthy(launch, options);
  findings[Duty::healthy] = healthy;
  if (healthy.verdict != Verdict::passed) {
    findings[Duty::update] = {Verdict::notJudged, "it was not healthy"};
  } else if (options.duties.contains(Duty::update)) {
    findings[Duty::update] = judgeUpdate(launch, installation);
    (void)launch.endRuntime();  // as a user would
  }
  return true;
}

}  // namespace conformance
