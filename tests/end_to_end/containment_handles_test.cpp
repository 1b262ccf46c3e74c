// Of all handles that are open around it, the runtime gets the launch lease.

#include <windows.h>

#include <algorithm>

#include "tests/end_to_end/containment.h"
#include "tests/support/windows_temp_directory.h"

namespace end_to_end {
namespace {

using Lines = std::vector<std::string>;

// What was opened with which rights, without the values, in a fixed order.
Lines objectsIn(const RuntimeLog& report) {
  Lines objects;
  for (const HandleSeen& handle : handlesIn(report)) {
    objects.push_back(handle.kind + " " + handle.access + " " + handle.name);
  }
  std::sort(objects.begin(), objects.end());
  return objects;
}

Lines without(const Lines& all, const Lines& taken) {
  Lines rest;
  std::set_difference(all.begin(), all.end(), taken.begin(), taken.end(), std::back_inserter(rest));
  return rest;
}

std::string finalPath(const std::wstring& path) {
  const Handle file = openExclusively(path);
  std::wstring name(32768, L'\0');
  name.resize(GetFinalPathNameByHandleW(file.get(), name.data(), static_cast<DWORD>(name.size()), 0));
  return toUtf8(name);
}

// Objects of the kinds that a program is likely to hold, open with inheritable handles.
class InheritableObjects {
 public:
  explicit InheritableObjects(const std::wstring& filePath) {
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    const std::wstring suffix = std::to_wstring(GetCurrentProcessId());
    own(CreateEventW(&inheritable, TRUE, FALSE, (L"containment-event-" + suffix).c_str()));
    own(CreateFileMappingW(INVALID_HANDLE_VALUE, &inheritable, PAGE_READWRITE, 0, 4096,
                           (L"containment-mapping-" + suffix).c_str()));
    own(CreateFileW(filePath.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS, 0,
                    nullptr));
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    CreatePipe(&readEnd, &writeEnd, &inheritable, 0);
    own(readEnd);
    own(writeEnd);
  }
  const std::vector<void*>& values() const { return values_; }

 private:
  void own(HANDLE handle) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) fail("an object cannot be created");
    owned_.emplace_back(handle);
    values_.push_back(handle);
  }
  std::vector<Handle> owned_;
  std::vector<void*> values_;
};

TEST_F(ContainmentTest, theProbeSeesWhateverItIsHanded) {
  const InheritableObjects objects(installation_.scratch() + L"\\extra");

  const RuntimeLog report = reportOfProbeAlone({.inherited = objects.values()});

  Lines kinds;
  for (const HandleSeen& handle : inheritedIn(report)) {
    kinds.push_back(handle.kind);
    const bool named =
        handle.name.find("\\extra") != std::string::npos || handle.name.find("containment-") != std::string::npos;
    EXPECT_EQ(named, handle.kind != "Pipe") << handle.name;
  }
  std::sort(kinds.begin(), kinds.end());
  EXPECT_EQ(kinds, (Lines{"Event", "File", "Pipe", "Pipe", "Section"}));
  EXPECT_EQ(report.one("lease"), "none");
}

TEST_F(ContainmentTest, theLeaseIsTheOneInheritedHandleWhateverTheLauncherHolds) {
  const InheritableObjects objects(installation_.scratch() + L"\\extra");

  Launcher launcher = launch(L"end", {.inherited = objects.values()});

  EXPECT_EQ(launcher.exitCode(), 0U);
  const RuntimeLog report = this->report();
  const std::vector<HandleSeen> inherited = inheritedIn(report);
  ASSERT_EQ(inherited.size(), 1U) << report.text();
  EXPECT_EQ(inherited[0].name, finalPath(installation_.inRoot(L"launch.lock")));
  EXPECT_EQ(inherited[0].kind, "File");
  EXPECT_EQ(inherited[0].access, "0x12019f") << "reading and writing, as the launcher has it open";
  EXPECT_EQ(report.one("lease"), inherited[0].value);
  const Lines lines = report.all("handle");
  const bool anyPipe = std::any_of(lines.begin(), lines.end(),
                                   [](const std::string& line) { return line.find(" Pipe ") != std::string::npos; });
  EXPECT_FALSE(anyPipe) << "also not in the place of a standard handle";
}

// What the launcher still holds of the first runtime and of its job is not for the second one either.
TEST_F(ContainmentTest, theLeaseIsTheOneInheritedHandleAlsoAtTheSecondStartOfARun) {
  installation_.installSlot("aaaa", "exit 3\n");
  installation_.writeState(StateText{.generation = 5, .active = "aaaa"}.json());

  EXPECT_EQ(launch(L"end").exitCode(), 0U);

  EXPECT_EQ(installation_.startedSlots(), Lines{"aaaa"}) << "the probe in the seed keeps no book";
  const std::vector<HandleSeen> inherited = inheritedIn(report());
  ASSERT_EQ(inherited.size(), 1U) << report().text();
  EXPECT_EQ(inherited[0].name, finalPath(installation_.inRoot(L"launch.lock")));
  EXPECT_EQ(report().one("lease"), inherited[0].value);
}

// A handle can lose its mark of inheritance on the way, so the whole table is compared as well. What the system opens
// for a process may differ between two starts: under Wine registry keys, by what is in its caches; on Windows also
// threads, events and the like. Files and sections are the same everywhere.
TEST_F(ContainmentTest, theLeaseIsAllThatAProcessWithoutInheritanceLacks) {
  const InheritableObjects objects(installation_.scratch() + L"\\extra");
  const Lines ownObjects = objectsIn(reportOfProbeAlone({}));
  ASSERT_FALSE(ownObjects.empty()) << "the current directory at least";

  EXPECT_EQ(launch(L"end", {.inherited = objects.values()}).exitCode(), 0U);

  Lines more = without(objectsIn(report()), ownObjects);
  std::erase_if(more, [](const std::string& object) {
    const bool same = object.starts_with("File ") || object.starts_with("Section ");
    return launcher_stub::tests::runsUnderWine() ? object.starts_with("Key ") : !same;
  });
  EXPECT_EQ(more, Lines{"File 0x12019f " + finalPath(installation_.inRoot(L"launch.lock"))});
}

}  // namespace
}  // namespace end_to_end
