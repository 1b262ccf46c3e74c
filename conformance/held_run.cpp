// The attempt's record and the boot state are held open by the kit, as a virus scanner or a backup program would, from
// before the runtime's first instruction on.

#include "conformance/launch.h"
#include "conformance/runs.h"

namespace conformance {
namespace {

constexpr std::uint32_t heldMs = 1000;
constexpr std::uint32_t startLimitMs = 30'000;
constexpr int tries = 5;  // to be quicker than the launcher, which starts the runtime right after it wrote the record

// Holds the record as soon as it is there. Null: the launcher is over, or nothing came.
Handle holdRecord(Launch& launch, const Installation& installation) {
  const std::wstring directory = installation.stateRoot() + L"\\attempts";
  for (const std::uint64_t start = milliseconds(); milliseconds() - start < startLimitMs;) {
    for (const std::wstring& name : namesIn(directory)) {
      Handle record = openForNobodyElse(inDirectory(inDirectory(directory, name), L"boot-v1.json"));
      if (record != nullptr) return record;
    }
    if (launch.launcher().hasEnded()) break;
    pause(0);
  }
  return nullptr;
}

enum class Outcome { judged, tooLate };

Outcome tryOnce(Launch& launch, const Installation& installation, const Options& options, Finding& finding) {
  Handle record = holdRecord(launch, installation);
  Handle state = openForNobodyElse(installation.stateRoot() + L"\\boot-v1.json");
  const bool tooLate = launch.hasStartedAnything();
  if (record == nullptr) {
    finding = {Verdict::notJudged, "the launcher started nothing"};
    return Outcome::judged;
  }
  if (tooLate) return Outcome::tooLate;

  const auto isOver = [&] { return launch.runtimeHasEnded() || launch.isOver(); };
  const bool endedWhileHeld = launch.waitUntil(isOver, heldMs);
  record.reset();
  state.reset();
  const auto isReady = [&] { return launch.marker(L"ready-v1").form == Marker::Form::right; };
  if (!endedWhileHeld) (void)launch.waitUntil([&] { return isReady() || isOver(); }, options.readyWithin);
  launch.look();
  if (isReady()) {
    finding = {Verdict::passed, "ready " + std::to_string(launch.age()) + " ms after the launcher's start"};
  } else if (isOver()) {
    const auto code = launch.runtime() == nullptr ? std::nullopt : launch.runtime()->exitCode();
    finding = {Verdict::failed, std::string("ended ") + (endedWhileHeld ? "while" : "after") + " the file was held" +
                                    (code ? ", with exit code " + std::to_string(*code) : std::string())};
  } else {
    finding = {Verdict::failed, "no right ready-v1 after " + std::to_string(options.readyWithin) + " ms"};
  }
  return Outcome::judged;
}

}  // namespace

bool runWithHeldRecord(const Options& options, Findings& findings, std::string& problem) {
  Finding& finding = findings[Duty::heldRecord];
  for (int count = 0; count < tries; ++count) {
    Installation installation(options);
    Launch launch(installation, options);
    if (!installation.layOut(problem) || !launch.start(problem)) return false;
    if (tryOnce(launch, installation, options, finding) == Outcome::judged) return true;
  }
  finding = {Verdict::notJudged,
             "the runtime was started before the kit had the file, " + std::to_string(tries) + " times in a row"};
  return true;
}

}  // namespace conformance
