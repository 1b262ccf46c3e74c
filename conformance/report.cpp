#include "conformance/report.h"

#include <algorithm>

#include "conformance/platform_files.h"
#include "json/writer.h"
#include "state/document.h"

namespace conformance {
namespace {

using launcher_stub::JsonArray;
using launcher_stub::JsonObject;
using launcher_stub::JsonText;
using launcher_stub::JsonValue;

struct VerdictText {
  Verdict verdict;
  std::string_view word;  // in the table
  std::string_view key;   // in the document
};
constexpr VerdictText verdictTexts[] = {{Verdict::passed, "passed", "passed"},
                                        {Verdict::warned, "WARNING", "warned"},
                                        {Verdict::failed, "FAILED", "failed"},
                                        {Verdict::notJudged, "not judged", "notJudged"}};

const VerdictText& textOf(Verdict verdict) {
  return *std::find_if(std::begin(verdictTexts), std::end(verdictTexts),
                       [&](const VerdictText& text) { return text.verdict == verdict; });
}

std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width > text.size() ? width - text.size() : 1, ' ');
}

std::uint64_t countOf(const Findings& findings, Verdict verdict) {
  return static_cast<std::uint64_t>(std::count_if(findings.begin(), findings.end(),
                                                  [&](const auto& found) { return found.second.verdict == verdict; }));
}

}  // namespace

std::string tableOf(const Findings& findings) {
  std::string table;
  for (const DutyText& duty : allDuties) {
    const auto found = findings.find(duty.duty);
    if (found == findings.end()) continue;
    table += padded(duty.name, 17) + padded(textOf(found->second.verdict).word, 12) + found->second.detail + "\n";
  }
  std::string summary;
  for (const VerdictText& text : verdictTexts) {
    const std::string number = std::to_string(countOf(findings, text.verdict));
    summary += (summary.empty() ? "" : ", ") + number + " " +
               std::string(text.verdict == Verdict::notJudged ? "not judged" : text.key);
  }
  return table + summary + "\n";
}

std::string jsonOf(const Findings& findings, const Options& options) {
  JsonArray duties;
  for (const DutyText& duty : allDuties) {
    const auto found = findings.find(duty.duty);
    if (found == findings.end()) continue;
    JsonObject members;
    members.try_emplace("duty", JsonText(duty.name));
    members.try_emplace("means", JsonText(duty.means));
    members.try_emplace("verdict", JsonText(textOf(found->second.verdict).key));
    members.try_emplace("detail", JsonText(found->second.detail));
    duties.emplace_back(JsonValue(members));
  }
  JsonObject report = launcher_stub::newDocument();
  report.try_emplace("launcher", JsonText(toUtf8(options.launcher)));
  report.try_emplace("seed", JsonText(toUtf8(options.seed)));
  for (const VerdictText& text : verdictTexts) {
    report.try_emplace(text.key, launcher_stub::unsignedNumber(countOf(findings, text.verdict)));
  }
  report.try_emplace("duties", duties);
  return launcher_stub::toJsonText(JsonValue(report)) + "\n";
}

int exitCodeOf(const Findings& findings) { return countOf(findings, Verdict::failed) > 0 ? 1 : 0; }

}  // namespace conformance
