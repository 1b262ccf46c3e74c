#include "tests/conformance/kit.h"

#include <windows.h>

#include <stdexcept>

#include "json/value.h"
#include "state/document.h"

namespace conformance_tests {
namespace {

namespace files = launcher_stub::tests;
using launcher_stub::JsonValue;

constexpr DWORD kitLimitMs = 280'000;

std::wstring besideTestProgram(const wchar_t* name) {
  wchar_t path[32768];
  const std::wstring program(path, GetModuleFileNameW(nullptr, path, 32768));
  return program.substr(0, program.find_last_of(L'\\') + 1) + name;
}

std::string memberText(const JsonValue& value, std::string_view key) {
  const JsonValue* member = findMember(*value.object(), key);
  if (member == nullptr || member->string() == nullptr) throw std::runtime_error("no text: " + std::string(key));
  return *member->string();
}

Report reportIn(const std::string& json) {
  JsonValue document;
  std::string error;
  if (!launcher_stub::checkDocumentHeader(json.substr(0, json.find('\n')), document, error)) {
    throw std::runtime_error("the report: " + error);
  }
  Report report;
  const JsonValue* duties = findMember(*document.object(), "duties");
  if (duties == nullptr || duties->array() == nullptr) throw std::runtime_error("no duties");
  for (const JsonValue& duty : *duties->array()) {
    report[memberText(duty, "duty")] = {memberText(duty, "verdict"), memberText(duty, "detail")};
  }
  return report;
}

HANDLE createForChild(const std::wstring& path) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("no output file");
  return file;
}

// Its exit code. A kit that does not come to an end is ended.
std::uint32_t runProgram(std::wstring commandLine, const std::wstring& output, const std::wstring& errors) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = createForChild(output);
  startup.hStdError = createForChild(errors);
  PROCESS_INFORMATION process = {};
  const BOOL started =
      CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
  CloseHandle(startup.hStdOutput);
  CloseHandle(startup.hStdError);
  if (!started) throw std::runtime_error("the kit could not be started");
  const bool ended = WaitForSingleObject(process.hProcess, kitLimitMs) == WAIT_OBJECT_0;
  if (!ended) TerminateProcess(process.hProcess, 250);
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hProcess);
  CloseHandle(process.hThread);
  if (!ended) throw std::runtime_error("the kit did not end");
  return code;
}

std::wstring quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

}  // namespace

Integrator::Integrator(const std::string& script) {
  files::makeDirectory(seed());
  files::makeDirectory(work());
  if (!CopyFileW(besideTestProgram(L"entry-v1.exe").c_str(), (seed() + L"\\entry-v1.exe").c_str(), FALSE)) {
    throw std::runtime_error("no sample runtime beside this program");
  }
  write(L"script.txt", script);
}

void Integrator::write(const std::wstring& name, const std::string& content) {
  files::writeFile(seed() + L"\\" + name, content);
}

void Integrator::remove(const std::wstring& name) { DeleteFileW((seed() + L"\\" + name).c_str()); }

KitRun Integrator::run(const std::wstring& options) const {
  return runBare(L" --launcher " + quoted(launcherPath()) + L" --seed " + quoted(seed()) + L" --work " +
                 quoted(work()) + L" --json " + quoted(jsonFile()) + L" " + options);
}

KitRun Integrator::runBare(const std::wstring& commandLine) const {
  const std::wstring output = directory_ / L"output.txt";
  const std::wstring errors = directory_ / L"errors.txt";
  DeleteFileW(jsonFile().c_str());
  KitRun run;
  run.exitCode = runProgram(quoted(besideTestProgram(L"conformance.exe")) + commandLine, output, errors);
  run.table = files::readFile(output).value_or("");
  run.errors = files::readFile(errors).value_or("");
  run.json = files::readFile(jsonFile()).value_or("");
  if (!run.json.empty()) run.report = reportIn(run.json);
  return run;
}

std::wstring launcherPath() { return besideTestProgram(L"launcher.exe"); }

}  // namespace conformance_tests
