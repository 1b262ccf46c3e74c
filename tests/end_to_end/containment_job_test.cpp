// Neither the runtime nor what it starts gets out of its job, nor lives longer than that.

#include <windows.h>

#include <winternl.h>

#include <cstddef>

#include "tests/end_to_end/containment.h"
#include "tests/support/windows_temp_directory.h"

namespace end_to_end {
namespace {

std::uint32_t idIn(const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text)); }

bool isIn(HANDLE process, HANDLE job) {
  BOOL isMember = FALSE;
  return IsProcessInJob(process, job, &isMember) && isMember;
}

TEST_F(ContainmentTest, theProbeTellsWhereThereIsNoJob) {
  if (isIn(GetCurrentProcess(), nullptr)) GTEST_SKIP() << "this test runs in a job itself";

  const RuntimeLog report = reportOfProbeAlone({}, L"end");

  const ProcessWatch child(idIn(report.one("child")));
  EXPECT_EQ(report.one("in-job"), "no");
  EXPECT_TRUE(report.one("child").ends_with(" in-job no")) << report.one("child");
  const std::string leaver = report.one("breakaway");
  ASSERT_TRUE(leaver.starts_with("created ")) << leaver;
  const ProcessWatch ended(idIn(leaver.substr(8)));
  EXPECT_TRUE(leaver.ends_with(" in-job no")) << leaver;
}

TEST_F(ContainmentTest, theRuntimeAndWhatItStartsAreInAJobThatNobodyLeaves) {
  Launcher launcher = launch(L"stay");
  ASSERT_TRUE(reports());

  const RuntimeLog report = this->report();
  EXPECT_EQ(report.one("in-job"), "yes");
  EXPECT_TRUE(report.one("child").ends_with(" in-job yes")) << report.one("child");
  EXPECT_EQ(report.one("breakaway"), "refused 5");
}

TEST_F(ContainmentTest, whatTheRuntimeStartedEndsWithTheLauncher) {
  Launcher launcher = launch(L"stay");
  ASSERT_TRUE(reports());
  const ProcessWatch runtime(idIn(report().one("pid")));
  const ProcessWatch child(idIn(report().one("child")));
  ASSERT_TRUE(runtime.isRunning() && child.isRunning());

  launcher.kill();

  EXPECT_TRUE(runtime.endsWithin());
  EXPECT_TRUE(child.endsWithin());
}

TEST_F(ContainmentTest, whatTheRuntimeStartedEndsWithTheRun) {
  Launcher launcher = launch(L"stay");
  ASSERT_TRUE(reports());
  const ProcessWatch child(idIn(report().one("child")));
  ASSERT_TRUE(child.isRunning());

  finish();

  EXPECT_EQ(launcher.exitCode(), 0U);
  EXPECT_TRUE(child.endsWithin(0));
}

bool isJob(HANDLE handle) {
  using QueryObject = NTSTATUS NTAPI(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG, ULONG*);
  static auto* const query = reinterpret_cast<QueryObject*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
  alignas(std::max_align_t) unsigned char buffer[1024] = {};
  ULONG size = 0;
  if (query(handle, static_cast<OBJECT_INFORMATION_CLASS>(2), buffer, sizeof buffer, &size) < 0) return false;
  const auto* type = reinterpret_cast<const UNICODE_STRING*>(buffer);
  return std::wstring_view(type->Buffer, type->Length / sizeof(wchar_t)) == L"Job";
}

// The job objects that another process has open. While these handles live, its jobs do not close.
std::vector<Handle> jobsOf(const Process& process) {
  std::vector<Handle> jobs;
  for (std::uintptr_t value = 4; value < 4096; value += 4) {
    HANDLE copy = nullptr;
    if (!DuplicateHandle(process.handle(), reinterpret_cast<HANDLE>(value), GetCurrentProcess(), &copy, 0, FALSE,
                         DUPLICATE_SAME_ACCESS)) {
      continue;
    }
    Handle handle(copy);
    if (isJob(copy)) jobs.push_back(std::move(handle));
  }
  return jobs;
}

// The launcher's own job is a second net, for its end at a bad moment. The runtime's is the one that it ends a tree
// with, so the launcher itself must not be in it.
TEST_F(ContainmentTest, theRuntimesJobHoldsItsTreeAndNotTheLauncher) {
  Launcher launcher = launch(L"stay");
  ASSERT_TRUE(reports());
  const Handle runtime(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, idIn(report().one("pid"))));
  const Handle child(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, idIn(report().one("child"))));
  ASSERT_TRUE(runtime != nullptr && child != nullptr);

  const std::vector<Handle> jobs = jobsOf(launcher.process());

  ASSERT_EQ(jobs.size(), 2U);
  int withoutTheLauncher = 0;
  for (const Handle& job : jobs) {
    EXPECT_TRUE(isIn(runtime.get(), job.get()));
    EXPECT_TRUE(isIn(child.get(), job.get()));
    if (!isIn(launcher.process().handle(), job.get())) ++withoutTheLauncher;
    if (launcher_stub::tests::runsUnderWine()) continue;  // its answer to the query below is always 0
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    EXPECT_TRUE(
        QueryInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits, nullptr));
    EXPECT_EQ(limits.BasicLimitInformation.LimitFlags, 0x2000U);
  }
  EXPECT_EQ(withoutTheLauncher, 1);
}

}  // namespace
}  // namespace end_to_end
