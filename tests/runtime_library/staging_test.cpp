// Laying out a slot.

#include <windows.h>

#include <gtest/gtest.h>

#include "state/delivery_record.h"
#include "tests/runtime_library/started_runtime.h"

namespace runtime_library {
namespace {

namespace files = launcher_stub::tests;
using launcher_client::Failure;
using launcher_client::SlotFile;
using Names = std::vector<std::wstring>;

const std::string deliveryOfSeed = R"({"deliveryId":")" + std::string(64, 'a') + R"(","schemaVersion":1})";

TEST(staging, copiesTheFilesAndMarksTheSlotComplete) {
  const StartedRuntime runtime;
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  EXPECT_EQ(files::namesIn(runtime.slot()), (Names{L"COMPLETE-v1", L"data", L"entry-v1.exe"}));
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\entry-v1.exe"), "a program");
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\data\\german\\texts.bin"), "texts");
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\COMPLETE-v1"), "");
}

TEST(staging, writesTheDeliveryThatItIsGiven) {
  const StartedRuntime runtime;
  files::writeFile(runtime.install() + L"\\seed\\delivery-v1.json", deliveryOfSeed);
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update(), std::string(64, 'b')));
  launcher_stub::DeliveryRecord record;
  std::string error;
  ASSERT_TRUE(readDelivery(*files::readFile(runtime.slot() + L"\\delivery-v1.json"), record, error)) << error;
  EXPECT_EQ(record.deliveryId, std::string(64, 'b'));
}

TEST(staging, takesTheSeedsDeliveryOver) {
  const StartedRuntime runtime;
  files::writeFile(runtime.install() + L"\\seed\\delivery-v1.json", deliveryOfSeed);
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\delivery-v1.json"), deliveryOfSeed);
}

TEST(staging, leavesACompleteSlotAsItIs) {
  const StartedRuntime runtime;
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  files::writeFile(runtime.scratch(L"program.exe"), "a newer program");
  Failure failure;
  EXPECT_FALSE(stageSlot(runtime.launch(), "beef0001", runtime.update(), {}, &failure));
  EXPECT_EQ(failure.code, std::uint32_t{ERROR_ALREADY_EXISTS});
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\entry-v1.exe"), "a program");
}

TEST(staging, thatFailsLeavesNoMarkerAndCanBeRepeated) {
  const StartedRuntime runtime;
  DeleteFileW(runtime.scratch(L"texts.bin").c_str());  // the second of the two files
  Failure failure;
  EXPECT_FALSE(stageSlot(runtime.launch(), "beef0001", runtime.update(), {}, &failure));
  EXPECT_EQ(failure.text(), "cannot copy the slot's files: Win32 error 2");
  EXPECT_FALSE(files::exists(runtime.slot() + L"\\COMPLETE-v1"));
  EXPECT_TRUE(files::exists(runtime.slot() + L"\\entry-v1.exe")) << "the first one was copied before";

  files::writeFile(runtime.scratch(L"texts.bin"), "texts");
  EXPECT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  EXPECT_TRUE(files::exists(runtime.slot() + L"\\COMPLETE-v1"));
}

// A file of an older staging that the new one does not have must not be started with it.
TEST(staging, removesWhatAnInterruptedOneLeft) {
  const StartedRuntime runtime;
  files::makeDirectory(runtime.slot());
  files::makeDirectory(runtime.slot() + L"\\data");
  files::makeDirectory(runtime.slot() + L"\\old");
  files::writeFile(runtime.slot() + L"\\old\\half.dll", "ha");
  files::writeFile(runtime.slot() + L"\\entry-v1.exe", "half a prog");
  files::writeFile(runtime.slot() + L"\\COMPLETE-v1.new-1-1", "");
  files::setAttributes(runtime.slot() + L"\\entry-v1.exe", FILE_ATTRIBUTE_READONLY);
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  EXPECT_EQ(files::namesIn(runtime.slot()), (Names{L"COMPLETE-v1", L"data", L"entry-v1.exe"}));
  EXPECT_EQ(files::readFile(runtime.slot() + L"\\entry-v1.exe"), "a program");
}

// Wine cannot remove a link, so the staging itself fails there; Windows removes it and goes on. Neither may follow it.
TEST(staging, touchesNothingBehindALink) {
  const StartedRuntime runtime;
  files::makeDirectory(runtime.scratch(L"elsewhere"));
  files::writeFile(runtime.scratch(L"elsewhere\\precious"), "kept");
  files::makeDirectory(runtime.slot());
  files::makeDirectoryLink(runtime.slot() + L"\\link", runtime.scratch(L"elsewhere"));
  const bool staged = stageSlot(runtime.launch(), "beef0001", runtime.update());
  EXPECT_EQ(files::readFile(runtime.scratch(L"elsewhere\\precious")), "kept");
  EXPECT_EQ(staged, files::exists(runtime.slot() + L"\\COMPLETE-v1"));
  EXPECT_TRUE(staged || files::runsUnderWine());
}

TEST(staging, makesWritableCopiesOfReadOnlyFiles) {
  const StartedRuntime runtime;
  files::setAttributes(runtime.scratch(L"program.exe"), FILE_ATTRIBUTE_READONLY);
  ASSERT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
  const DWORD attributes = GetFileAttributesW((runtime.slot() + L"\\entry-v1.exe").c_str());
  EXPECT_EQ(attributes & FILE_ATTRIBUTE_READONLY, 0U);
}

TEST(staging, waitsForAFileThatIsHeld) {
  const StartedRuntime runtime;
  const HeldFile held(runtime.scratch(L"texts.bin"), 400);
  EXPECT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update()));
}

TEST(staging, refusesNamesThatBreakARule) {
  const StartedRuntime runtime;
  const std::wstring program = runtime.scratch(L"program.exe");
  struct Case {
    const char* why;
    std::string slot;
    std::wstring file;  // beside entry-v1.exe
    std::string deliveryId;
  };
  const Case cases[] = {
      {"the seed", "seed", L"x", ""},
      {"too short a slot", "abc", L"x", ""},
      {"a slot that leads out", "..", L"x", ""},
      {"a file that leads out", "beef0001", L"..\\x", ""},
      {"a file that leads out further in", "beef0001", L"data\\..\\..\\x", ""},
      {"a full path", "beef0001", L"C:\\x", ""},
      {"a path from the root", "beef0001", L"\\x", ""},
      {"a stream", "beef0001", L"entry-v1.exe:x", ""},
      {"an empty name", "beef0001", L"", ""},
      {"an empty folder", "beef0001", L"data\\\\x", ""},
      {"the marker", "beef0001", L"complete-V1", ""},
      {"the delivery record", "beef0001", L"delivery-v1.json", ""},
      {"too short a delivery id", "beef0001", L"x", std::string(63, 'a')},
      {"a delivery id in capitals", "beef0001", L"x", std::string(64, 'A')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Failure failure;
    const std::vector<SlotFile> update = {{program, L"entry-v1.exe"}, {program, c.file}};
    EXPECT_FALSE(stageSlot(runtime.launch(), c.slot, update, c.deliveryId, &failure));
    EXPECT_EQ(failure.text(), "cannot stage a slot by these names: Win32 error 87");
  }
  EXPECT_FALSE(stageSlot(runtime.launch(), "beef0001", {{program, L"other.exe"}})) << "no entry-v1.exe";
  EXPECT_TRUE(files::namesIn(runtime.root() + L"\\slots").empty());
}

TEST(staging, saysWhenThereIsNoPlaceForSlots) {
  const StartedRuntime runtime;
  RemoveDirectoryW((runtime.root() + L"\\slots").c_str());
  Failure failure;
  EXPECT_FALSE(stageSlot(runtime.launch(), "beef0001", runtime.update(), {}, &failure));
  EXPECT_EQ(failure.text(), "cannot create the slot's directory: Win32 error 3");
}

// Wine has no such limit, so this shows there only that the longer form of a path is taken; on Windows it shows all.
TEST(staging, reachesFarBeyondTheLengthOfPlainPaths) {
  const StartedRuntime runtime;
  std::wstring name;
  for (int depth = 0; depth < 6; ++depth) name += std::wstring(70, L'd') + L"\\";
  name += L"far.bin";
  const std::vector<SlotFile> update = {{runtime.scratch(L"program.exe"), L"entry-v1.exe"},
                                        {runtime.scratch(L"texts.bin"), name}};
  EXPECT_TRUE(stageSlot(runtime.launch(), "beef0001", update)) << GetLastError();
  EXPECT_EQ(files::readFile(L"\\\\?\\" + runtime.slot() + L"\\" + name), "texts");

  // And removes it again: the same slot, interrupted before its marker.
  DeleteFileW((runtime.slot() + L"\\COMPLETE-v1").c_str());
  EXPECT_TRUE(stageSlot(runtime.launch(), "beef0001", runtime.update())) << GetLastError();
  EXPECT_EQ(files::namesIn(runtime.slot()), (Names{L"COMPLETE-v1", L"data", L"entry-v1.exe"}));
}

}  // namespace
}  // namespace runtime_library
