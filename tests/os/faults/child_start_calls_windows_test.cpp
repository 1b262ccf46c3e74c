// What exactly the system is asked for where a child is started: each argument of each call, and their order. Of a
// job's limits and of a handle list Wine tells nothing afterwards, so the calls are all that can be seen there.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "os/child_environment.h"
#include "os/this_process.h"
#include "tests/os/faults/child_start_test.h"

namespace launcher_stub::os {
namespace {

using namespace launcher_stub::tests;

using Calls = std::vector<std::string>;

// A job's limits as they are wanted: kill on close (0x2000, at offset 16), and nothing else.
std::vector<std::uint8_t> killOnCloseAlone() {
  std::vector<std::uint8_t> bytes(144);
  bytes[17] = 0x20;
  return bytes;
}

std::uint64_t fileIndex(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (!GetFileInformationByHandle(file, &information)) return 0;
  return std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow;
}

using ChildStartCallsTest = ChildStartTest;

TEST_F(ChildStartCallsTest, theLockFileIsOpenedWithoutInheritance) {
  closeLockFile(lease_);
  int opened = 0;
  watchCreateFileW = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                         DWORD flags, HANDLE like) {
    ++opened;
    EXPECT_EQ(std::wstring(path), directory_ / L"launch.lock");
    EXPECT_EQ(access, 0xC0000000u);
    EXPECT_EQ(sharing, 0u);
    EXPECT_EQ(attributes, nullptr);
    EXPECT_EQ(disposition, 4u);
    EXPECT_EQ(flags, 0x80u);
    EXPECT_EQ(like, nullptr);
  };

  EXPECT_TRUE(openLockFile(lease_, directory_ / L"launch.lock", LockWait::none));

  EXPECT_EQ(opened, 1);
  DWORD flags = HANDLE_FLAG_INHERIT;
  EXPECT_TRUE(GetHandleInformation(lease_.handle.get(), &flags));
  EXPECT_EQ(flags, 0u);
}

TEST_F(ChildStartCallsTest, theHandleListHoldsAnInheritableDuplicateOfTheLeaseAlone) {
  HANDLE listed = nullptr;
  int duplicated = 0;
  watchDuplicateHandle = [&](HANDLE from, HANDLE handle, HANDLE to, LPHANDLE, DWORD access, WINBOOL inherit,
                             DWORD options) {
    if (handle != lease_.handle.get()) return;  // the run-time library duplicates handles of its own
    ++duplicated;
    EXPECT_TRUE(from == GetCurrentProcess() && to == GetCurrentProcess());
    EXPECT_EQ(access, 0u);
    EXPECT_TRUE(inherit);
    EXPECT_EQ(options, 2u);
  };
  watchUpdateProcThreadAttribute = [&](LPPROC_THREAD_ATTRIBUTE_LIST, DWORD flags, DWORD_PTR attribute, PVOID value,
                                       SIZE_T size, PVOID previous, PSIZE_T returned) {
    EXPECT_EQ(listed, nullptr) << "one attribute";
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(attribute, 0x20002u);
    ASSERT_EQ(size, 8u) << "one handle";
    EXPECT_TRUE(previous == nullptr && returned == nullptr);
    listed = *static_cast<HANDLE*>(value);
    DWORD information = 0;
    EXPECT_TRUE(GetHandleInformation(listed, &information));
    EXPECT_EQ(information, DWORD{HANDLE_FLAG_INHERIT});
    EXPECT_EQ(fileIndex(listed), fileIndex(lease_.handle.get()));
  };

  EXPECT_TRUE(start());

  EXPECT_EQ(duplicated, 1);
  ASSERT_NE(listed, nullptr);
  EXPECT_NE(fileIndex(listed), fileIndex(lease_.handle.get()))
      << "the duplicate is closed again, its value maybe reused";
}

TEST_F(ChildStartCallsTest, theProcessIsCreatedSuspendedWithTheHandleListAndTheBuiltEnvironment) {
  HANDLE listed = nullptr;
  void* list = nullptr;
  int created = 0;
  watchUpdateProcThreadAttribute = [&](LPPROC_THREAD_ATTRIBUTE_LIST attributes, DWORD, DWORD_PTR, PVOID value, SIZE_T,
                                       PVOID, PSIZE_T) {
    list = attributes;
    listed = *static_cast<HANDLE*>(value);
  };
  watchCreateProcessW = [&](LPCWSTR path, LPWSTR line, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread,
                            WINBOOL inherit, DWORD flags, LPVOID environment, LPCWSTR directory, LPSTARTUPINFOW startup,
                            LPPROCESS_INFORMATION) {
    ++created;
    EXPECT_EQ(std::wstring(path), executable_);
    EXPECT_EQ(std::wstring(line), L"\"" + executable_ + L"\" \"/c\" \"exit 0\"");
    EXPECT_TRUE(process == nullptr && thread == nullptr);
    EXPECT_TRUE(inherit);
    EXPECT_EQ(flags, 0x80404u);
    EXPECT_EQ(directory, nullptr);

    const std::wstring block = buildChildEnvironment(directory_ / L"install", directory_ / L"root",
                                                     directory_ / L"attempt", reinterpret_cast<std::uintptr_t>(listed));
    EXPECT_TRUE(std::equal(block.begin(), block.end(), static_cast<const wchar_t*>(environment)));

    STARTUPINFOEXW expected{};
    expected.StartupInfo.cb = 112;
    expected.lpAttributeList = static_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(list);
    EXPECT_EQ(std::memcmp(startup, &expected, sizeof expected), 0) << "all else is zero";
  };

  EXPECT_TRUE(start());

  EXPECT_EQ(created, 1);
}

TEST_F(ChildStartCallsTest, theJobIsUnnamedAndKillsOnCloseAndNothingElse) {
  watchCreateJobObjectW = [](LPSECURITY_ATTRIBUTES attributes, LPCWSTR name) {
    EXPECT_TRUE(attributes == nullptr && name == nullptr);
  };
  std::vector<std::uint8_t> limits;
  HANDLE limited = nullptr;
  watchSetInformationJobObject = [&](HANDLE job, JOBOBJECTINFOCLASS kind, LPVOID information, DWORD size) {
    EXPECT_EQ(limited, nullptr) << "set once";
    EXPECT_EQ(kind, 9);
    ASSERT_EQ(size, 144u);
    const auto* bytes = static_cast<const std::uint8_t*>(information);
    limits.assign(bytes, bytes + size);
    limited = job;
  };

  EXPECT_TRUE(start());

  EXPECT_EQ(limits, killOnCloseAlone());
  EXPECT_EQ(limited, child_.job.get());
}

TEST_F(ChildStartCallsTest, theProcessRunsOnlyWhenItIsInTheLimitedJob) {
  Calls calls;
  watchCreateProcessW = [&](auto...) { calls.emplace_back("create process"); };
  watchCreateJobObjectW = [&](auto...) { calls.emplace_back("create job"); };
  watchSetInformationJobObject = [&](auto...) { calls.emplace_back("limit"); };
  HANDLE joined = nullptr;
  DWORD joinedProcess = 0;
  watchAssignProcessToJobObject = [&](HANDLE job, HANDLE process) {
    calls.emplace_back("assign");
    joined = job;
    joinedProcess = GetProcessId(process);
  };
  watchResumeThread = [&](HANDLE thread) {
    calls.emplace_back("resume");
    EXPECT_EQ(GetProcessIdOfThread(thread), joinedProcess);
  };

  EXPECT_TRUE(start());

  EXPECT_EQ(calls, (Calls{"create process", "create job", "limit", "assign", "resume"}));
  EXPECT_EQ(joined, child_.job.get());
  EXPECT_EQ(joinedProcess, GetProcessId(child_.process.get()));
}

// Faked to the end: a test program that contained itself would end with its own job.
TEST_F(ChildStartCallsTest, theLaunchersOwnJobKillsOnCloseAndNothingElse) {
  std::vector<std::uint8_t> limits;
  watchSetInformationJobObject = [&](HANDLE, JOBOBJECTINFOCLASS kind, LPVOID information, DWORD size) {
    EXPECT_EQ(kind, 9);
    const auto* bytes = static_cast<const std::uint8_t*>(information);
    limits.assign(bytes, bytes + size);
  };
  Calls calls;
  watchAssignProcessToJobObject = [&](HANDLE job, HANDLE process) {
    EXPECT_NE(job, nullptr);
    EXPECT_EQ(process, GetCurrentProcess());
    calls.emplace_back("assign");
  };
  fakeAssignProcessToJobObject = [] { return TRUE; };

  containThisProcess();

  EXPECT_EQ(calls, Calls{"assign"});
  EXPECT_EQ(limits, killOnCloseAlone());
}

}  // namespace
}  // namespace launcher_stub::os
