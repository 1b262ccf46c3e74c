// The kit as an integrator or a build runs it: the program, a directory with a runtime, the report read back.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/windows_temp_directory.h"

namespace conformance_tests {

struct Judged {
  std::string verdict;  // "passed", "warned", "failed", "notJudged"
  std::string detail;
};
using Report = std::map<std::string, Judged>;  // by duty

struct KitRun {
  std::uint32_t exitCode = 0;
  std::string errors;  // what it wrote to standard error
  std::string table;   // ... to standard output
  std::string json;
  Report report;  // what is in the JSON
};

// A directory that holds a sample runtime with a script, and room for the kit's temporary files.
class Integrator {
 public:
  explicit Integrator(const std::string& script);

  // Puts a file into the seed, or replaces one.
  void write(const std::wstring& name, const std::string& content);
  void remove(const std::wstring& name);

  // `options` stand in the command line as they are, behind those that name the launcher, the seed and the files.
  KitRun run(const std::wstring& options) const;
  // The same with nothing but these in the command line.
  KitRun runBare(const std::wstring& commandLine) const;

  std::wstring seed() const { return directory_ / L"seed"; }
  std::wstring work() const { return directory_ / L"work"; }
  std::wstring jsonFile() const { return directory_ / L"report.json"; }

 private:
  launcher_stub::tests::TempDirectory directory_{L"conf \u0416"};  // short: an installation lies deep in it
};

std::wstring launcherPath();

// Makes the sample runtime's script go on where it says "wait 200000 finish".
inline constexpr wchar_t closeByFile[] = LR"( --close-command "cmd /c type nul > \"{slot}\finish\"")";

}  // namespace conformance_tests
