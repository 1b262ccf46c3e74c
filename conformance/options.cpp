#include "conformance/options.h"

#include <charconv>

#include "conformance/platform_files.h"

namespace conformance {
namespace {

bool readMilliseconds(const std::wstring& text, std::uint32_t& number) {
  const std::string digits = toUtf8(text);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() && end == digits.data() + digits.size();
}

bool readDuties(const std::wstring& text, std::set<Duty>& duties, std::string& problem) {
  std::string names = toUtf8(text);
  for (std::size_t start = 0; start <= names.size();) {
    const std::size_t end = std::min(names.find(',', start), names.size());
    const std::string name = names.substr(start, end - start);
    const std::optional<Duty> duty = dutyNamed(name);
    if (!duty) {
      problem = "there is no duty \"" + name + "\"";
      return false;
    }
    duties.insert(*duty);
    start = end + 1;
  }
  return true;
}

// One option with its value.
bool readValue(const std::string& name, const std::wstring& value, Options& options, std::string& problem) {
  const struct {
    std::string_view name;
    std::wstring* text;
  } texts[] = {{"--launcher", &options.launcher},   {"--seed", &options.seed},
               {"--arguments", &options.arguments}, {"--close-command", &options.closeCommand},
               {"--json", &options.jsonFile},       {"--work", &options.work}};
  for (const auto& option : texts) {
    if (option.name == name) {
      *option.text = value;
      return true;
    }
  }
  const struct {
    std::string_view name;
    std::uint32_t* number;
  } numbers[] = {{"--ready-within", &options.readyWithin},
                 {"--healthy-within", &options.healthyWithin},
                 {"--close-within", &options.closeWithin}};
  for (const auto& option : numbers) {
    if (option.name != name) continue;
    if (readMilliseconds(value, *option.number)) return true;
    problem = name + " takes a number of milliseconds";
    return false;
  }
  if (name == "--only") return readDuties(value, options.duties, problem);
  problem = "unknown option \"" + name + "\"";
  return false;
}

// What was named must be there, under its full path.
bool resolve(Options& options, std::string& problem) {
  if (options.launcher.empty() || options.seed.empty()) {
    problem = "--launcher and --seed are needed";
    return false;
  }
  options.launcher = fullPath(options.launcher);
  options.seed = fullPath(options.seed);
  options.work = options.work.empty() ? temporaryDirectory() : fullPath(options.work);
  for (const std::wstring& file : {options.launcher, options.seed + L"\\entry-v1.exe"}) {
    if (isPresent(file) && !isDirectory(file)) continue;
    problem = "there is no file " + toUtf8(file);
    return false;
  }
  if (options.duties.empty()) {
    for (const DutyText& text : allDuties) options.duties.insert(text.duty);
  }
  return true;
}

}  // namespace

bool readOptions(const std::vector<std::wstring>& arguments, Options& options, std::string& problem) {
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string name = toUtf8(arguments[index]);
    if (name == "--help") {
      options.help = true;
      return true;
    }
    if (name == "--keep") {
      options.keep = true;
    } else if (index + 1 == arguments.size()) {
      problem = name.starts_with("--") ? name + " needs a value, or is unknown" : "unknown argument \"" + name + "\"";
      return false;
    } else if (!readValue(name, arguments[++index], options, problem)) {
      return false;
    }
  }
  return resolve(options, problem);
}

std::string usage() {
  std::string text =
      "usage: conformance --launcher PATH --seed DIRECTORY [OPTION...]\n"
      "  --launcher PATH         the launcher's executable\n"
      "  --seed DIRECTORY        holds entry-v1.exe and everything that belongs to it\n"
      "  --arguments TEXT        arguments for the runtime\n"
      "  --ready-within MS       limit for ready-v1 (60000)\n"
      "  --healthy-within MS     limit for healthy-v1 (120000, as the launcher's own)\n"
      "  --close-within MS       limit for ending when asked to (15000)\n"
      "  --close-command TEXT    a command that makes the runtime end; without it its windows are asked to close.\n"
      "                          {pid}, {slot}, {attempt}, {state} and {install} are filled in\n"
      "  --only DUTY[,DUTY...]   judge these alone; may be repeated\n"
      "  --json FILE             write the report as JSON as well\n"
      "  --work DIRECTORY        where the temporary installations are made (the user's temporary directory)\n"
      "  --keep                  leave them there\n"
      "  --help                  print this\n"
      "duties:\n";
  for (const DutyText& duty : allDuties) {
    text.append("  ").append(duty.name).append(24 - duty.name.size(), ' ').append(duty.means).append("\n");
  }
  return text +
         "exit code: 0 all judged duties are kept, 1 some are not, 2 the command line or the kit itself failed\n";
}

}  // namespace conformance
