// As many random lives as wanted, on all cores: soak --launches N --seed S, or one of them: soak --replay SEED.
//
// Each core is a process of its own, so that a crash of one is seen, and named, by the others' parent. They take the
// seeds in turn and report through one pipe, a line for each life.
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/sweeps/random_life.h"

namespace launcher_stub::sweeps {
namespace {

constexpr int progressEveryMs = 2'000;

struct Options {
  std::uint64_t launches = 1'000'000;
  bool launchesGiven = false;
  std::uint64_t seed = 1;
  bool replay = false;
  std::uint64_t jobs = static_cast<std::uint64_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
};

bool readNumber(const char* text, std::uint64_t& number) {
  char* end = nullptr;
  number = std::strtoull(text, &end, 10);
  return *text >= '0' && *text <= '9' && *end == '\0';
}

bool readOptions(int count, char** arguments, Options& options) {
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string_view name = arguments[i];
    std::uint64_t number = 0;
    if (!readNumber(arguments[i + 1], number)) return false;
    if (name == "--launches") {
      options.launches = number;
      options.launchesGiven = true;
    } else if (name == "--seed") {
      options.seed = number;
    } else if (name == "--replay") {
      options.seed = number;
      options.replay = true;
    } else if (name == "--jobs" && number > 0) {
      options.jobs = number;
    } else {
      return false;
    }
  }
  return count % 2 == 1;
}

std::string replayCommand(const LifeReport& life) {
  return "./dev soak --replay " + std::to_string(life.seed) + " --launches " + std::to_string(life.launches);
}

// The failing life once more, with its trace.
void show(const LifeReport& life) {
  std::printf("in launch %llu of the life with seed %llu:\n%s%s\n%s\nto replay it: %s\n",
              static_cast<unsigned long long>(life.launches), static_cast<unsigned long long>(life.seed),
              life.findings.c_str(), life.plan.c_str(), life.trace.c_str(), replayCommand(life).c_str());
}

int replay(const Options& options) {
  const std::uint64_t launches = options.launchesGiven ? options.launches : launchesOfALife;
  const LifeReport life = liveRandomly(options.seed, launches, Tracing::on);
  if (!life.findings.empty()) return show(life), 1;
  std::printf("%sseed %llu: %llu launches, %llu machines, %llu calls, digest %016llx: nothing wrong\n",
              life.plan.c_str(), static_cast<unsigned long long>(life.seed),
              static_cast<unsigned long long>(life.launches), static_cast<unsigned long long>(life.machines),
              static_cast<unsigned long long>(life.calls), static_cast<unsigned long long>(life.digest));
  return 0;
}

// --- The processes that live the lives ---

// A short line is written whole, so that the lines of several processes do not mix.
void tell(int pipe, const std::string& line) {
  if (write(pipe, line.data(), line.size()) < 0) _exit(2);  // nobody listens any more
}

[[noreturn]] void work(const Options& options, std::uint64_t number, int pipe) {
  for (std::uint64_t i = number; i * launchesOfALife < options.launches; i += options.jobs) {
    const std::uint64_t seed = options.seed + i;
    const std::string who = std::to_string(number) + " " + std::to_string(seed) + " ";
    tell(pipe, "begins " + who + "\n");
    const LifeReport life = liveRandomly(seed, std::min(launchesOfALife, options.launches - i * launchesOfALife));
    for (const auto& [name, count] : life.reached) tell(pipe, "reached " + std::to_string(count) + " " + name + "\n");
    tell(pipe, (life.findings.empty() ? "ends " : "fails ") + who + std::to_string(life.launches) + " " +
                   std::to_string(life.machines) + "\n");
  }
  _exit(0);
}

// --- The one that watches them ---

class Watcher {
 public:
  explicit Watcher(const Options& options) : options_(options), livedBy_(options.jobs) {}

  int run() {
    if (pipe(ends_) != 0) return 2;
    for (std::uint64_t number = 0; number < options_.jobs; ++number) {
      const pid_t pid = fork();
      if (pid == 0) work(options_, number, ends_[1]);
      if (pid > 0) numbers_[pid] = number;
    }
    close(ends_[1]);
    while (listen()) progress();
    const bool crashed = sayWhoCrashed();
    summarise();
    for (const std::uint64_t seed : failed_) {
      show(liveRandomly(seed, launchesOfALife, Tracing::on));
    }
    return failed_.empty() && !crashed ? 0 : 1;
  }

 private:
  // False: all of them have ended.
  bool listen() {
    pollfd waiting{ends_[0], POLLIN, 0};
    if (poll(&waiting, 1, progressEveryMs) <= 0) return true;
    char buffer[65536];
    const ssize_t size = read(ends_[0], buffer, sizeof buffer);
    if (size <= 0) return false;
    heard_.append(buffer, static_cast<std::size_t>(size));
    for (std::size_t end = heard_.find('\n'); end != std::string::npos; end = heard_.find('\n')) {
      take(heard_.substr(0, end));
      heard_.erase(0, end + 1);
    }
    return true;
  }

  void take(const std::string& line) {
    unsigned long long a = 0;
    unsigned long long seed = 0;
    unsigned long long launches = 0;
    unsigned long long machines = 0;
    char name[200] = "";
    if (std::sscanf(line.c_str(), "begins %llu %llu", &a, &seed) == 2) {
      livedBy_[a] = seed;
    } else if (std::sscanf(line.c_str(), "reached %llu %199[^\n]", &a, name) == 2) {
      reached_[name] += a;
    } else if (std::sscanf(line.c_str(), "ends %llu %llu %llu %llu", &a, &seed, &launches, &machines) == 4 ||
               std::sscanf(line.c_str(), "fails %llu %llu %llu %llu", &a, &seed, &launches, &machines) == 4) {
      launches_ += launches;
      machines_ += machines;
      ++lives_;
      if (!line.starts_with("fails")) return;
      failed_.push_back(seed);
      std::printf("FAILED in the life with seed %llu; to replay it: ./dev soak --replay %llu\n", seed, seed);
      std::fflush(stdout);
    }
  }

  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count(); }

  void print(const char* what) {
    std::printf("%s%llu launches, %.0f/s, %llu lives, %llu machines, %zu failures, %.0f s\n", what,
                static_cast<unsigned long long>(launches_), static_cast<double>(launches_) / seconds(),
                static_cast<unsigned long long>(lives_), static_cast<unsigned long long>(machines_), failed_.size(),
                seconds());
    std::fflush(stdout);
  }

  void progress() {
    if (seconds() * 1'000 < nextProgress_) return;
    nextProgress_ = seconds() * 1'000 + progressEveryMs;
    print("");
  }

  bool sayWhoCrashed() {
    bool crashed = false;
    int status = 0;
    for (pid_t pid = wait(&status); pid > 0; pid = wait(&status)) {
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) continue;
      crashed = true;
      std::printf("CRASHED in the life with seed %llu; to replay it: ./dev soak --replay %llu\n",
                  static_cast<unsigned long long>(livedBy_[numbers_[pid]]),
                  static_cast<unsigned long long>(livedBy_[numbers_[pid]]));
    }
    return crashed;
  }

  void summarise() {
    for (const auto& [name, count] : reached_) {
      std::printf("  %10llu  %s\n", static_cast<unsigned long long>(count), name.c_str());
    }
    for (const std::string_view name : toBeReached()) {
      if (!reached_.contains(name)) std::printf("  never reached: %s\n", std::string(name).c_str());
    }
    print("figures: soak: ");
  }

  const Options& options_;
  int ends_[2] = {-1, -1};
  std::map<pid_t, std::uint64_t> numbers_;
  std::vector<std::uint64_t> livedBy_;  // the seed that each process is at
  std::string heard_;
  std::map<std::string, std::uint64_t, std::less<>> reached_;
  std::vector<std::uint64_t> failed_;
  std::uint64_t launches_ = 0;
  std::uint64_t machines_ = 0;
  std::uint64_t lives_ = 0;
  double nextProgress_ = progressEveryMs;
  std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

int soak(int count, char** arguments) {
  Options options;
  if (!readOptions(count, arguments, options)) {
    std::fputs("usage: soak [--launches N] [--seed S] [--jobs J] | soak --replay SEED [--launches N]\n", stderr);
    return 2;
  }
  return options.replay ? replay(options) : Watcher(options).run();
}

}  // namespace
}  // namespace launcher_stub::sweeps

int main(int count, char** arguments) { return launcher_stub::sweeps::soak(count, arguments); }
