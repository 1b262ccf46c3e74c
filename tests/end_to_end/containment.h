// A probe in the place of the seed's runtime, which looks around and reports: what the runtime can reach, seen from
// inside. inside/probe.cpp describes the report.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/end_to_end/harness.h"

namespace end_to_end {

class ContainmentTest : public testing::Test {
 protected:
  void SetUp() override;

  // With the probe as its runtime, which reports and then does what `mode` says: "end" or "stay".
  Launcher launch(const std::wstring& mode, LauncherStart start = {});
  bool reports() const;  // waits
  RuntimeLog report() const;
  // Lets a probe that stays end itself.
  void finish() const { writeFile(reportFile() + L".finish", ""); }

  // The same program, in the same directory, started by the test itself with what a launcher would be given.
  RuntimeLog reportOfProbeAlone(const LauncherStart& given, const std::wstring& mode = L"alone") const;

  std::wstring reportFile() const { return installation_.scratch() + L"\\inside.txt"; }

  Installation installation_;
};

// One handle as the probe saw it.
struct HandleSeen {
  std::string value;
  bool inheritable = false;  // an inherited handle keeps this mark; those that the system opens for a process lack it
  bool standard = false;     // one of the three standard handles
  std::string kind;          // the system's type, but "Pipe" and "Device" for a file that is one
  std::string access;
  std::string name;
};

// All handles in a report but the standard ones. Wine hands these three to every child in spite of the list of handles;
// on Windows they stay behind like any other handle.
std::vector<HandleSeen> handlesIn(const RuntimeLog& report);
// Those of them that the process was given.
std::vector<HandleSeen> inheritedIn(const RuntimeLog& report);

}  // namespace end_to_end
