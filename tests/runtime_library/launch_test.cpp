// Learning from the launcher, and speaking to it: markers, restart, generation, request.

#include <windows.h>

#include <gtest/gtest.h>

#include "state/attempt_record.h"
#include "state/names.h"
#include "state/pending_request.h"
#include "state/restart_request.h"
#include "tests/runtime_library/started_runtime.h"

namespace runtime_library {
namespace {

namespace files = launcher_stub::tests;
using launcher_client::Failure;
using launcher_client::Launch;

constexpr std::uint32_t whileMs = 400;

const wchar_t* const variables[] = {L"QUORVEX_BOOT_STATE_ROOT", L"QUORVEX_BOOT_ATTEMPT_DIR", L"QUORVEX_BOOT_LEASE",
                                    L"QUORVEX_BOOT_INSTALL_DIR"};

TEST(readLaunch, findsTheFourVariablesAndTheRecord) {
  const StartedRuntime runtime;
  Launch launch;
  ASSERT_TRUE(readLaunch(launch));
  EXPECT_EQ(launch.stateRoot, runtime.root());
  EXPECT_EQ(launch.attemptDirectory, runtime.attempt());
  EXPECT_EQ(launch.installDirectory, runtime.install());
  EXPECT_EQ(launch.lease, runtime.lease());
  EXPECT_EQ(launch.slot, "seed");
  EXPECT_EQ(launch.nonce, nonce);
}

TEST(readLaunch, saysWhenTheProgramWasStartedByHand) {
  for (const wchar_t* name : variables) {
    for (const wchar_t* value : {static_cast<const wchar_t*>(nullptr), L""}) {
      SCOPED_TRACE(std::string(name, name + wcslen(name)) + (value == nullptr ? " missing" : " empty"));
      const StartedRuntime runtime;
      setVariable(name, value);
      Launch launch;
      launch.slot = "as before";
      Failure failure;
      EXPECT_FALSE(readLaunch(launch, &failure));
      EXPECT_EQ(GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
      EXPECT_EQ(failure.text(), "not started by the launcher: Win32 error 203");
      EXPECT_EQ(launch.slot, "as before");
      EXPECT_TRUE(launch.stateRoot.empty());
    }
  }
}

TEST(readLaunch, takesOnlyADecimalNumberAsTheLease) {
  for (const wchar_t* value : {L"abc", L"-", L"12x", L" 12", L"12 ", L"-4", L"+4", L"0x30", L"0", L"1.0",
                               L"18446744073709551616", L"\u0661\u0662"}) {
    SCOPED_TRACE(testing::PrintToString(value));
    const StartedRuntime runtime;
    setVariable(L"QUORVEX_BOOT_LEASE", value);
    Launch launch;
    Failure failure;
    EXPECT_FALSE(readLaunch(launch, &failure));
    EXPECT_EQ(failure.text(), "the lease's variable is no handle: Win32 error 13");
    EXPECT_EQ(launch.lease, nullptr);
  }
  const StartedRuntime runtime;
  setVariable(L"QUORVEX_BOOT_LEASE", L"18446744073709551615");
  Launch launch;
  EXPECT_TRUE(readLaunch(launch));
}

TEST(readLaunch, refusesARecordThatMakesNoSense) {
  const std::string slot = R"("slot":"seed")";
  const std::string token = R"("nonce":"12345678")";
  struct Case {
    const char* why;
    std::string record;
  };
  const Case cases[] = {
      {"empty", ""},
      {"no document", "not at all"},
      {"half of one", "{" + token + R"(,"slot":"see)"},
      {"no slot", "{" + token + "}"},
      {"no nonce", "{" + slot + "}"},
      {"a slot's name in capitals", "{" + token + R"(,"slot":"ABCD"})"},
      {"a slot's name too short", "{" + token + R"(,"slot":"abc"})"},
      {"a slot that is no name", "{" + token + R"(,"slot":"..\\x"})"},
      {"a nonce too short", "{" + slot + R"(,"nonce":"1234567"})"},
      {"a nonce with a dot", "{" + slot + R"(,"nonce":"1234567."})"},
      {"a nonce that is a number", "{" + slot + R"(,"nonce":{"nonce":"12345678"}})"},
      {"only in an inner object", R"({"inner":{)" + slot + "," + token + "}}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartedRuntime runtime;
    runtime.writeRecord(c.record);
    Launch launch;
    Failure failure;
    EXPECT_FALSE(readLaunch(launch, &failure));
    EXPECT_EQ(failure.text(), "the attempt's record makes no sense: Win32 error 13");
    EXPECT_TRUE(launch.stateRoot.empty());
  }
}

TEST(readLaunch, saysWhenThereIsNoRecord) {
  const StartedRuntime runtime;
  DeleteFileW((runtime.attempt() + L"\\boot-v1.json").c_str());
  Launch launch;
  Failure failure;
  EXPECT_FALSE(readLaunch(launch, &failure));
  EXPECT_EQ(failure.text(), "cannot read the attempt's record: Win32 error 2");
}

TEST(readLaunch, waitsForARecordThatIsHeld) {
  const StartedRuntime runtime;
  const HeldFile held(runtime.attempt() + L"\\boot-v1.json", whileMs);
  const std::uint64_t begin = now();
  Launch launch;
  EXPECT_TRUE(readLaunch(launch));
  EXPECT_GE(now() - begin, whileMs - 50);
  EXPECT_EQ(launch.nonce, nonce);
}

TEST(lease, isKeptFromChildren) {
  const StartedRuntime runtime;
  DWORD flags = 0;
  ASSERT_TRUE(GetHandleInformation(runtime.lease(), &flags));
  ASSERT_NE(flags & HANDLE_FLAG_INHERIT, 0U);

  EXPECT_TRUE(keepLeaseFromChildren(runtime.launch()));

  ASSERT_TRUE(GetHandleInformation(runtime.lease(), &flags));
  EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
}

TEST(lease, thatIsNoHandleIsReported) {
  const StartedRuntime runtime;
  setVariable(L"QUORVEX_BOOT_LEASE", L"999996");  // far above what this process has open
  Failure failure;
  EXPECT_FALSE(keepLeaseFromChildren(runtime.launch(), &failure));
  EXPECT_EQ(failure.text(), "cannot keep the lease from children: Win32 error 6");
}

struct MarkerKind {
  const wchar_t* file;
  bool (*write)(const Launch&, Failure*);
  const char* action;
};
const MarkerKind markers[] = {
    {L"\\ready-v1", launcher_client::writeReady, "cannot write the ready marker"},
    {L"\\healthy-v1", launcher_client::writeHealthy, "cannot write the healthy marker"},
};

TEST(markers, areReadByTheLauncherAsThisStarts) {
  for (const MarkerKind& marker : markers) {
    SCOPED_TRACE(marker.action);
    const StartedRuntime runtime;
    ASSERT_TRUE(marker.write(runtime.launch(), nullptr));
    ASSERT_TRUE(marker.write(runtime.launch(), nullptr)) << "a second time";

    launcher_stub::AttemptRecord record;
    std::string error;
    ASSERT_TRUE(readAttemptRecord(*files::readFile(runtime.attempt() + marker.file), record, error)) << error;
    EXPECT_EQ(record.slot, "seed");
    EXPECT_EQ(record.nonce, nonce);
    EXPECT_EQ(files::namesIn(runtime.attempt()).size(), 2U) << "nothing but the record and the marker";
  }
}

TEST(markers, failWithTheirDirectory) {
  for (const MarkerKind& marker : markers) {
    const StartedRuntime runtime;
    Launch launch = runtime.launch();
    launch.attemptDirectory += L"\\gone";
    Failure failure;
    EXPECT_FALSE(marker.write(launch, &failure));
    EXPECT_EQ(failure.text(), std::string(marker.action) + ": Win32 error 3");
  }
}

TEST(restart, isReadByTheLauncherWithAndWithoutARequestId) {
  const StartedRuntime runtime;
  const std::wstring path = runtime.attempt() + L"\\restart-v1.json";
  launcher_stub::RestartRequest request;
  std::string error;

  ASSERT_TRUE(askForRestart(runtime.launch()));
  ASSERT_TRUE(readRestartRequest(*files::readFile(path), request, error)) << error;
  EXPECT_EQ(request.slot, "seed");
  EXPECT_EQ(request.nonce, nonce);
  EXPECT_FALSE(request.requestId.has_value());

  ASSERT_TRUE(askForRestart(runtime.launch(), "update_1-A"));
  ASSERT_TRUE(readRestartRequest(*files::readFile(path), request, error)) << error;
  EXPECT_EQ(request.requestId, "update_1-A");
}

TEST(restart, refusesAnIdThatTheLauncherWould) {
  const StartedRuntime runtime;
  for (const std::string& id : {std::string("1234567"), std::string(65, 'a'), std::string("12345\"78")}) {
    Failure failure;
    EXPECT_FALSE(askForRestart(runtime.launch(), id, &failure)) << id;
    EXPECT_EQ(failure.text(), "cannot ask for a restart by this request id: Win32 error 87");
  }
  EXPECT_FALSE(files::exists(runtime.attempt() + L"\\restart-v1.json"));
}

TEST(restart, failsWithItsDirectory) {
  const StartedRuntime runtime;
  Launch launch = runtime.launch();
  launch.attemptDirectory += L"\\gone";
  Failure failure;
  EXPECT_FALSE(askForRestart(launch, {}, &failure));
  EXPECT_EQ(failure.text(), "cannot write the restart request: Win32 error 3");
}

TEST(generation, isReadFromTheStateInForce) {
  struct Case {
    const char* why;
    std::string state;
    std::optional<std::uint64_t> generation;
  };
  const Case cases[] = {
      {"as the launcher writes it", R"({"attemptCount":0,"generation":41,"rejected":[],"schemaVersion":1})", 41},
      {"with white space", "{ \"generation\" :\t7 ,\n \"schemaVersion\" : 1 }", 7},
      {"largest", R"({"generation":18446744073709551615,"schemaVersion":1})", UINT64_MAX},
      {"too large", R"({"generation":18446744073709551616,"schemaVersion":1})", std::nullopt},
      {"negative", R"({"generation":-1,"schemaVersion":1})", std::nullopt},
      {"with a fraction", R"({"generation":1.0,"schemaVersion":1})", std::nullopt},
      {"missing", R"({"schemaVersion":1})", std::nullopt},
      {"cut off", R"({"schemaVersion":1,"generation":41)", std::nullopt},
      {"of another version", R"({"generation":41,"schemaVersion":2})", std::nullopt},
      {"without a version", R"({"generation":41})", std::nullopt},
      {"empty", "", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    StartedRuntime runtime;
    runtime.writeState(c.state);
    std::uint64_t generation = 3;
    Failure failure;
    EXPECT_EQ(readCurrentGeneration(runtime.launch(), generation, &failure), c.generation.has_value());
    EXPECT_EQ(generation, c.generation.value_or(3));
    EXPECT_EQ(failure.text(), c.generation ? ": Win32 error 0" : "the boot state makes no sense: Win32 error 13");
  }
}

TEST(generation, isNeverTakenFromTheBackup) {
  const StartedRuntime runtime;
  MoveFileW((runtime.root() + L"\\boot-v1.json").c_str(), (runtime.root() + L"\\boot-v1.previous.json").c_str());
  std::uint64_t generation = 0;
  Failure failure;
  EXPECT_FALSE(readCurrentGeneration(runtime.launch(), generation, &failure));
  EXPECT_EQ(failure.text(), "cannot read the boot state: Win32 error 2");
}

TEST(pendingRequest, isReadByTheLauncherAndNamesTheGeneration) {
  const StartedRuntime runtime;
  ASSERT_TRUE(leavePendingRequest(runtime.launch(), "dead0001", "request-1"));
  ASSERT_TRUE(leavePendingRequest(runtime.launch(), "beef0001", "request-2")) << "in the place of the first";

  launcher_stub::PendingRequest request;
  std::string error;
  ASSERT_TRUE(readPendingRequest(*files::readFile(runtime.root() + L"\\pending-v1.json"), request, error)) << error;
  EXPECT_EQ(request.candidate, "beef0001");
  EXPECT_EQ(request.requestId, "request-2");
  EXPECT_EQ(request.expectedGeneration, 41U);
}

TEST(pendingRequest, refusesWhatTheLauncherWould) {
  const StartedRuntime runtime;
  struct Case {
    const char* why;
    std::string candidate;
    std::string requestId;
  };
  const Case cases[] = {
      {"the seed", "seed", "request-1"},
      {"too short a slot", "abc", "request-1"},
      {"too long a slot", std::string(65, 'a'), "request-1"},
      {"capitals", "ABCD", "request-1"},
      {"too short an id", "abcd", "1234567"},
      {"a quote in the id", "abcd", "request\"1"},
      {"no id", "abcd", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Failure failure;
    EXPECT_FALSE(leavePendingRequest(runtime.launch(), c.candidate, c.requestId, &failure));
    EXPECT_EQ(failure.text(), "cannot request this candidate by this request id: Win32 error 87");
  }
  EXPECT_FALSE(files::exists(runtime.root() + L"\\pending-v1.json"));
}

TEST(pendingRequest, waitsForTheStateLock) {
  const StartedRuntime runtime;
  const HeldFile held(runtime.root() + L"\\state.lock", whileMs);
  const std::uint64_t begin = now();
  EXPECT_TRUE(leavePendingRequest(runtime.launch(), "beef0001", "request-1"));
  EXPECT_GE(now() - begin, whileMs - 50);
}

TEST(pendingRequest, isNotLeftWithoutAGenerationAndLetsGoOfTheLock) {
  const StartedRuntime runtime;
  DeleteFileW((runtime.root() + L"\\boot-v1.json").c_str());
  Failure failure;
  EXPECT_FALSE(leavePendingRequest(runtime.launch(), "beef0001", "request-1", &failure));
  EXPECT_EQ(failure.text(), "cannot read the boot state: Win32 error 2");
  EXPECT_FALSE(files::exists(runtime.root() + L"\\pending-v1.json"));
  const HeldFile free(runtime.root() + L"\\state.lock");
}

TEST(requestIds, areTokensThatDiffer) {
  const std::string first = launcher_client::newRequestId();
  const std::string second = launcher_client::newRequestId();
  EXPECT_EQ(first.size(), 32U);
  EXPECT_TRUE(launcher_stub::isToken(first)) << first;
  EXPECT_NE(first, second);
}

}  // namespace
}  // namespace runtime_library
