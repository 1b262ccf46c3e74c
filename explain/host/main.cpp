// launcher-explain where there is no Windows: for copies of an installation and its state root.
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "explain/command.h"
#include "explain/refusals.h"
#include "os/text.h"

namespace {

bool write(std::FILE* stream, std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
}

}  // namespace

int main(int count, char** arguments) {
  namespace explain = launcher_stub::explain;
  std::vector<std::wstring> words;
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = *std::next(arguments, i);
    words.push_back(launcher_stub::os::toWide(argument));
    if (words.back().empty() && !argument.empty()) {
      (void)write(stderr, std::string(explain::refusals::cannotExplain).append(explain::refusals::notAPath) + "\n");
      return explain::exitUsage;
    }
  }
  const explain::Answer answer = explain::answer(words, {.looksAtCopies = true});
  return write(stdout, answer.output) && write(stderr, answer.errors) ? answer.exitCode : explain::exitUsage;
}
