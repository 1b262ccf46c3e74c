// Files written and read whole, and what happens when somebody holds one for good.

#include <windows.h>

#include <gtest/gtest.h>

#include <thread>

#include "tests/runtime_library/started_runtime.h"

namespace runtime_library {
namespace {

namespace files = launcher_stub::tests;
using launcher_client::Failure;

constexpr std::uint32_t whileMs = 400;
constexpr std::size_t largest = 65536;

TEST(writeWhole, replacesAFileAndLeavesNothingElse) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  EXPECT_TRUE(launcher_client::writeWhole(path, "first, and long"));
  EXPECT_TRUE(launcher_client::writeWhole(path, "second"));
  EXPECT_EQ(files::readFile(path), "second");
  EXPECT_EQ(files::namesIn(directory.path()).size(), 1U);
}

TEST(writeWhole, takesAsMuchAsTheLauncherReads) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  EXPECT_TRUE(launcher_client::writeWhole(path, std::string(largest, 'x')));
  EXPECT_FALSE(launcher_client::writeWhole(path, std::string(largest + 1, 'y')));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_TOO_LARGE});
  EXPECT_EQ(files::readFile(path), std::string(largest, 'x'));
}

TEST(writeWhole, waitsForATargetThatIsHeld) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  files::writeFile(path, "old");
  const HeldFile held(path, whileMs);
  EXPECT_TRUE(launcher_client::writeWhole(path, "new"));
  EXPECT_EQ(files::readFile(path), "new");
}

TEST(writeWhole, overwritesItsOwnLeftOver) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  const std::wstring temporary =
      path + L".new-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetCurrentThreadId());
  files::writeFile(temporary, "half of what an earlier process with the same ids wrote");
  EXPECT_TRUE(launcher_client::writeWhole(path, "new"));
  EXPECT_EQ(files::readFile(path), "new");
  EXPECT_FALSE(files::exists(temporary));
}

TEST(writeWhole, keepsThreadsFromSpoilingEachOthersFile) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  const std::string contents[] = {std::string(5000, 'a'), std::string(3000, 'b')};
  std::vector<std::thread> writers;
  int failures[2] = {};
  for (int which = 0; which < 2; ++which) {
    writers.emplace_back([&, which] {
      for (int count = 0; count < 20; ++count) {
        if (!launcher_client::writeWhole(path, contents[which])) ++failures[which];
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(failures[0] + failures[1], 0);
  const std::string left = files::readFile(path).value_or("");
  EXPECT_TRUE(left == contents[0] || left == contents[1]);
  EXPECT_EQ(files::namesIn(directory.path()).size(), 1U);
}

TEST(readWhole, takesAsMuchAsTheLauncherDoes) {
  const files::TempDirectory directory;
  const std::wstring path = directory / L"file";
  std::string content = "as before";
  EXPECT_FALSE(launcher_client::readWhole(path, content));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  files::writeFile(path, std::string(largest + 1, 'x'));
  EXPECT_FALSE(launcher_client::readWhole(path, content));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_TOO_LARGE});
  EXPECT_EQ(content, "as before");
  files::writeFile(path, std::string(largest, 'x'));
  EXPECT_TRUE(launcher_client::readWhole(path, content));
  EXPECT_EQ(content, std::string(largest, 'x'));
  files::writeFile(path, "");
  EXPECT_TRUE(launcher_client::readWhole(path, content));
  EXPECT_EQ(content, "");
}

TEST(findMember, looksAtTheOutermostObjectOnly) {
  struct Case {
    const char* why;
    std::string document;
    std::optional<std::string> text;
  };
  const Case cases[] = {
      {"a string", R"({"key":"value"})", "value"},
      {"a number", R"({"key":12})", "12"},
      {"a word", R"({"key":true,"other":1})", "true"},
      {"behind others", R"({"a":"key","b":[1,{"key":"inner"}],"key":"outer"})", "outer"},
      {"white space", "{\r\n\t\"key\" : \"value\" }", "value"},
      {"an empty string", R"({"key":""})", ""},
      {"an escaped quote", R"({"key":"a\"b"})", R"(a\"b)"},
      {"the key as a value", R"({"other":"key"})", std::nullopt},
      {"in an inner object", R"({"other":{"key":"inner"}})", std::nullopt},
      {"in an array", R"(["key","value"])", std::nullopt},
      {"another key", R"({"keys":"value"})", std::nullopt},
      {"no value", R"({"key":)", std::nullopt},
      {"a string that does not end", R"({"key":"value)", std::nullopt},
      {"a string that ends in a backslash", "{\"key\":\"value\\", std::nullopt},
      {"a number that does not end", R"({"key":12)", std::nullopt},
      {"a key that does not end", R"({"key)", std::nullopt},
      {"a quote alone", "{\"", std::nullopt},
      {"nothing", "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    std::string text = "as before";
    EXPECT_EQ(launcher_client::findMember(c.document, "key", text), c.text.has_value());
    EXPECT_EQ(text, c.text.value_or("as before"));
  }
}

// Each of these takes the whole patience, so they wait side by side.
TEST(patience, endsWithAFileThatIsHeldForGood) {
  const StartedRuntime runtime;
  const launcher_client::Launch launch = runtime.launch();
  files::writeFile(runtime.attempt() + L"\\ready-v1", "old");
  files::writeFile(runtime.install() + L"\\seed\\delivery-v1.json", "the seed's");
  files::makeDirectory(runtime.root() + L"\\slots\\dead0001");
  files::writeFile(runtime.scratch(L"held source"), "a program");
  const HeldFile record(runtime.attempt() + L"\\boot-v1.json");
  const HeldFile marker(runtime.attempt() + L"\\ready-v1");
  const HeldFile lock(runtime.root() + L"\\state.lock");
  const HeldFile delivery(runtime.install() + L"\\seed\\delivery-v1.json");
  const HeldFile staging(runtime.root() + L"\\slots\\dead0001\\staging.lock");
  const HeldFile source(runtime.scratch(L"held source"));
  const std::string own(64, 'b');

  struct Case {
    std::string action;
    std::function<bool(Failure&)> attempt;
    Failure failure = {};
    bool succeeded = false;
    std::uint64_t duration = 0;
  };
  Case cases[] = {
      {"cannot read the attempt's record",
       [&](Failure& failure) {
         launcher_client::Launch again;
         return readLaunch(again, &failure);
       }},
      {"cannot write the ready marker", [&](Failure& failure) { return writeReady(launch, &failure); }},
      {"cannot take the state lock",
       [&](Failure& failure) { return leavePendingRequest(launch, "beef0001", "request-1", &failure); }},
      {"cannot write the delivery record",
       [&](Failure& failure) { return stageSlot(launch, "beef0001", runtime.update(), {}, &failure); }},
      {"another process stages the slot",
       [&](Failure& failure) { return stageSlot(launch, "dead0001", runtime.update(), own, &failure); }},
      {"cannot copy the slot's files",
       [&](Failure& failure) {
         return stageSlot(launch, "feed0001", {{runtime.scratch(L"held source"), L"entry-v1.exe"}}, own, &failure);
       }},
  };
  std::vector<std::thread> threads;
  for (Case& c : cases) {
    threads.emplace_back([&c] {
      const std::uint64_t begin = now();
      c.succeeded = c.attempt(c.failure);
      c.duration = now() - begin;
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (const Case& c : cases) {
    SCOPED_TRACE(c.action);
    EXPECT_FALSE(c.succeeded);
    EXPECT_EQ(c.failure.action, c.action);
    EXPECT_TRUE(c.failure.code == ERROR_SHARING_VIOLATION || c.failure.code == ERROR_ACCESS_DENIED) << c.failure.code;
    EXPECT_GE(c.duration, launcher_client::patienceMs);
    EXPECT_LT(c.duration, launcher_client::patienceMs + 20'000);
  }
  EXPECT_EQ(files::namesIn(runtime.attempt()).size(), 2U) << "no temporary file stays";
  EXPECT_FALSE(files::exists(runtime.root() + L"\\pending-v1.json"));
  for (const wchar_t* slot : {L"beef0001", L"dead0001", L"feed0001"}) {
    EXPECT_FALSE(files::exists(runtime.root() + L"\\slots\\" + slot + L"\\COMPLETE-v1"));
  }
}

}  // namespace
}  // namespace runtime_library
