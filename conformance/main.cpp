// The conformance kit: runs an integrator's runtime under the launcher and reports, duty by duty, what it does.

#include "conformance/options.h"
#include "conformance/platform_files.h"
#include "conformance/report.h"
#include "conformance/runs.h"

namespace {

constexpr int usageError = 2;

int stopped(const std::string& text) {
  conformance::printError(text);
  return usageError;
}

}  // namespace

extern "C" int wmain(int count, wchar_t** arguments);

extern "C" int wmain(int count, wchar_t** arguments) {
  conformance::Options options;
  std::string problem;
  if (!conformance::readOptions({arguments + 1, arguments + count}, options, problem)) {
    return stopped("conformance: " + problem + "\n--help tells the options\n");
  }
  if (options.help) {
    conformance::printOut(conformance::usage());
    return 0;
  }
  conformance::Findings findings;
  if (!conformance::judge(options, findings, problem)) return stopped("conformance: " + problem + "\n");
  conformance::printOut(conformance::tableOf(findings));
  if (!options.jsonFile.empty() &&
      !conformance::writeFile(options.jsonFile, conformance::jsonOf(findings, options), problem)) {
    return stopped("conformance: " + problem + "\n");
  }
  return conformance::exitCodeOf(findings);
}
