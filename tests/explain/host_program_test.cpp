// The program for this system, on real files: a copy of an installation and its state root.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace launcher_stub::explain {
namespace {

namespace fs = std::filesystem;

class HostProgram : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "explain d'or \u0416\u0443\u043a \U0001F388 XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    base_ = pattern;
    write("app/bootstrap-v1.json",
          R"({"schemaVersion":1,"installId":"copy","seedSlot":"seed","stateRoot":"C:\\Users\\me\\root"})");
    write("app/seed/entry-v1.exe", "");
  }
  void TearDown() override {
    std::error_code ignored;
    fs::permissions(base_, fs::perms::owner_all, ignored);
    fs::remove_all(base_, ignored);
  }

  void write(const std::string& path, const std::string& text) const {
    fs::create_directories((base_ / path).parent_path());
    std::ofstream(base_ / path, std::ios::binary) << text;
  }

  // The exit code; what was printed, on either stream, goes to `printed_`.
  int explain(const std::string& arguments) {
    std::string quotedBase = "'";
    for (const char c : base_.string()) quotedBase += c == '\'' ? std::string("'\\''") : std::string(1, c);
    quotedBase += "'";
    const std::string command = "cd " + quotedBase + " && " LAUNCHER_EXPLAIN " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    printed_.clear();
    char buffer[4096];
    for (std::size_t size = 0; (size = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) printed_.append(buffer, size);
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  bool printed(const std::string& part) const { return printed_.find(part) != std::string::npos; }

  std::map<std::string, fs::file_time_type> picture() const {
    std::map<std::string, fs::file_time_type> times;
    for (const auto& entry : fs::recursive_directory_iterator(base_)) {
      times[entry.path().string()] = entry.last_write_time();
    }
    return times;
  }

  fs::path base_;
  std::string printed_;
};

TEST_F(HostProgram, asksForTheStateRootThatTheBootstrapNamesOnAnotherMachine) {
  EXPECT_EQ(explain("app"), 2);
  EXPECT_EQ(printed_,
            "launcher-explain: the state root that the bootstrap names lies on another machine: C:\\Users\\me\\root; "
            "name the copy with --state-root DIR\n");
}

TEST_F(HostProgram, explainsACopiedRootAndLeavesItAsItIs) {
  write("root/boot-v1.json",
        R"({"schemaVersion":1,"generation":7,"attemptCount":1,"active":"aaaa","candidate":"bbbb","rejected":[]})");
  write("root/pending-v1.json",
        R"({"schemaVersion":1,"requestId":"request-1","expectedGeneration":6,"candidate":"bbbb"})");
  for (const char* slot : {"aaaa", "bbbb"}) {
    write(std::string("root/slots/") + slot + "/entry-v1.exe", "");
    write(std::string("root/slots/") + slot + "/COMPLETE-v1", "");
  }
  write("root/attempts/0123456789abcdef/boot-v1.json",
        R"({"schemaVersion":1,"slot":"bbbb","nonce":"0123456789abcdef","startedAt":5})");
  write("root/attempts/0123456789abcdef/ready-v1", R"({"schemaVersion":1,"slot":"bbbb","nonce":"0123456789abcdef"})");
  const auto before = picture();

  EXPECT_EQ(explain("app --state-root root"), 0);

  EXPECT_TRUE(printed("Would start: bbbb, as candidate (start 2 of 3)\n")) << printed_;
  EXPECT_TRUE(printed("A request must name generation 7 ")) << printed_;
  EXPECT_TRUE(printed("generation 6: would not be taken in: it names another generation")) << printed_;
  EXPECT_TRUE(printed("  0123456789abcdef: slot bbbb, ready yes, healthy no, restart not asked\n")) << printed_;
  EXPECT_TRUE(printed("Running launcher: not known on this system\n")) << printed_;
  EXPECT_EQ(picture(), before);
}

TEST_F(HostProgram, takesPathsWithEitherSeparatorAndShowsOtherLetters) {
  write("r/\u043a\u043e\u0440\u0435\u043d\u044c/boot-v1.json", "{");

  EXPECT_EQ(explain("\"$PWD/app/\" --state-root 'r\\\u043a\u043e\u0440\u0435\u043d\u044c'"), 0);

  EXPECT_TRUE(printed("State root:        r\\\u043a\u043e\u0440\u0435\u043d\u044c (as named on the command line)\n"))
      << printed_;
  EXPECT_TRUE(printed("  boot-v1.json           invalid: object syntax\n")) << printed_;
}

TEST_F(HostProgram, tellsWhatIsNoPlainFileAsUnreadableWithoutWaitingForIt) {
  write("root/boot-v1.json", std::string(65'537, ' '));
  ASSERT_EQ(::mkfifo((base_ / "root/boot-v1.previous.json").c_str(), 0600), 0);

  EXPECT_EQ(explain("app --state-root root --json"), 0);

  EXPECT_TRUE(printed(R"({"condition":"unreadable","name":"boot-v1.json")")) << printed_;
  EXPECT_TRUE(printed(R"({"condition":"unreadable","name":"boot-v1.previous.json")")) << printed_;
  EXPECT_TRUE(printed(R"("stateFrom":"unreadable")")) << printed_;
}

TEST_F(HostProgram, saysThreeWhereNothingWouldStartAndTwoForWrongArguments) {
  fs::remove_all(base_ / "app/seed");

  EXPECT_EQ(explain("app --state-root nowhere"), 3);
  EXPECT_TRUE(printed("NOTHING would start: \"No runnable runtime\"\n")) << printed_;
  EXPECT_EQ(explain("app --wrong"), 2);
  EXPECT_EQ(explain("nowhere --state-root root"), 2);
  EXPECT_EQ(printed_, "launcher-explain: missing bootstrap-v1.json\n");
  EXPECT_EQ(explain("\"$(printf '\\377')\""), 2) << "a path that is no text";
  EXPECT_FALSE(fs::exists(base_ / "nowhere"));
}

}  // namespace
}  // namespace launcher_stub::explain
