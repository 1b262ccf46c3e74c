#include "explain/command.h"

#include <utility>

#include "explain/explain_start.h"
#include "explain/json_report.h"
#include "explain/path_text.h"
#include "explain/refusals.h"
#include "explain/text_report.h"

namespace launcher_stub::explain {
namespace {

constexpr std::string_view help =
    "launcher-explain INSTALL-DIRECTORY [--state-root DIR] [--json]\n"
    "\n"
    "Says what the launcher in INSTALL-DIRECTORY would start now, and why. It only reads: it takes no lock,\n"
    "writes, creates and repairs nothing.\n"
    "\n"
    "  --state-root DIR  look at this state root instead of the one that the bootstrap names\n"
    "  --json            one JSON document instead of text\n"
    "\n"
    "Exit codes: 0 something would start, 3 nothing would start, 2 the arguments are wrong or the installation\n"
    "cannot be read.\n";

struct Options {
  Question question;
  bool json = false;
  bool help = false;
};

// None: `error` says what is wrong with the arguments.
std::optional<Options> parse(const std::vector<std::wstring>& arguments, std::string& error) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::wstring& argument = arguments[i];
    if (argument == L"--help" || argument == L"-h" || argument == L"/?") {
      options.help = true;
      return options;
    }
    if (argument == L"--json") {
      options.json = true;
    } else if (argument == L"--state-root") {
      if (i + 1 == arguments.size() || arguments[i + 1].empty()) {
        error = refusals::optionNeedsDirectory;
        return std::nullopt;
      }
      options.question.stateRoot = arguments[++i];
    } else if (argument.starts_with(L"--")) {
      error = std::string(refusals::unknownOption) + pathText(argument);
      return std::nullopt;
    } else if (argument.empty() || !options.question.installDirectory.empty()) {
      error = refusals::oneInstallDirectory;
      return std::nullopt;
    } else {
      options.question.installDirectory = argument;
    }
  }
  if (!options.question.installDirectory.empty()) return options;
  error = refusals::oneInstallDirectory;
  return std::nullopt;
}

Answer refusal(std::string_view error) {
  return {exitUsage, {}, std::string(refusals::cannotExplain).append(error).append("\n")};
}

}  // namespace

Answer answer(const std::vector<std::wstring>& arguments, const Host& host) {
  std::string error;
  std::optional<Options> options = parse(arguments, error);
  if (!options) return refusal(error.append(refusals::seeHelp));
  if (options->help) return {exitStarts, std::string(help), {}};

  options->question.looksAtCopies = host.looksAtCopies;
  std::optional<Findings> findings = explainStart(options->question, error);
  if (!findings) return refusal(error);
  if (host.programsIn != nullptr) findings->programs = host.programsIn(findings->installDirectory);
  return {findings->startsSomething ? exitStarts : exitNothingStarts,
          options->json ? jsonReport(*findings) : textReport(*findings),
          {}};
}

}  // namespace launcher_stub::explain
