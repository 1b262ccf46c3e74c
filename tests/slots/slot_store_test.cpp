#include "slots/slot_store.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "slots/install_layout.h"
#include "tests/simulation/sim_os.h"

namespace launcher_stub {
namespace {

using sim::Call;
using sim::SimOs;
using Lines = std::vector<std::string>;

void installSlot(SimOs& sim, const std::string& slot, std::optional<char> delivery = std::nullopt) {
  sim.install(slot, sim::Runtime::silent());
  if (delivery) sim.writeDelivery(slot, *delivery);
}

CheckedSlots check(SimOs& sim, const BootState* state, const PendingRequest* pending = nullptr) {
  return checkSlots(sim.stateRoot(), buildInstallLayout(sim.installDirectory()).seedEntryPath, state, pending,
                    reportForeignDelivery);
}

BootState stateWith(const std::string& active) { return {.active = active}; }

std::string ignoringLine(const std::string& slot) { return "ignoring slot " + slot + ": delivery differs from seed"; }

TEST(slotDirectory, liesUnderSlotsInTheStateRoot) {
  EXPECT_EQ(slotDirectory(L"C:\\Root", "00ff"), L"C:\\Root\\slots\\00ff");
  EXPECT_EQ(slotDirectory(L"C:\\", "00ff"), L"C:\\slots\\00ff");
}

TEST(isSlotComplete, followsTheRuleOfSlotNames) {
  struct Case {
    const char* why;
    std::string name;
    bool valid;
  };
  const Case cases[] = {
      {"one too short", "abc", false},
      {"shortest", "abcd", true},
      {"digits only", "0000", true},
      {"longest", std::string(64, 'f'), true},
      {"one too long", std::string(65, 'f'), false},
      {"hexadecimal, but upper case", "ABCD", false},
      {"one letter of upper case", "abcD", false},
      {"behind the last letter", "abcg", false},
      {"the seed is not in the store", "seed", false},
      {"a dot", "ab.d", false},
      {"the directory above", "..", false},
      {"a separator", "ab\\cd", false},
      {"the other separator", "ab/cd", false},
      {"a space at the end", "abcd ", false},
      {"empty", "", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    // Complete, if only the name were not looked at.
    sim.writeFile(slotDirectory(sim.stateRoot(), c.name) + L"\\COMPLETE-v1", "");
    sim.writeFile(slotDirectory(sim.stateRoot(), c.name) + L"\\entry-v1.exe", "");
    const std::uint64_t before = sim.calls();

    EXPECT_EQ(isSlotComplete(sim.stateRoot(), c.name), c.valid);

    if (!c.valid) {
      EXPECT_EQ(sim.calls(), before) << "an invalid name touches no file";
    }
  }
}

TEST(isSlotComplete, needsTheMarkerAndTheExecutable) {
  struct Case {
    const char* why;
    bool marker, executable;
    int looks;  // the second entry is looked for only where the first is there
  };
  const Case cases[] = {
      {"both", true, true, 2},
      {"no executable", true, false, 2},
      {"no marker", false, true, 1},
      {"neither", false, false, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.makeDirectory(sim.slotPath("abcd", L""));
    if (c.marker) sim.writeFile(sim.slotPath("abcd", L"COMPLETE-v1"), "");
    if (c.executable) sim.writeFile(sim.slotPath("abcd", L"entry-v1.exe"), "");

    EXPECT_EQ(isSlotComplete(sim.stateRoot(), "abcd"), c.marker && c.executable);

    EXPECT_EQ(sim.count(Call::status), c.looks);
  }
}

TEST(isSlotComplete, acceptsAnyKindOfEntry) {
  SimOs sim;
  sim.makeDirectory(sim.slotPath("abcd", L"COMPLETE-v1"));
  sim.makeDirectory(sim.slotPath("abcd", L"entry-v1.exe"));

  EXPECT_TRUE(isSlotComplete(sim.stateRoot(), "abcd"));
}

TEST(isSlotComplete, doesNotHoldWithoutADirectory) {
  const SimOs sim;

  EXPECT_FALSE(isSlotComplete(sim.stateRoot(), "abcd"));
}

TEST(checkSlots, looksAtEverySlotThatTheStateAndTheRequestName) {
  SimOs sim;
  for (const char* slot : {"aaaa", "bbbb", "cccc", "dddd", "eeee"}) installSlot(sim, slot);
  const BootState state = {.active = "aaaa", .previous = "bbbb", .candidate = "cccc", .rejected = {"eeee"}};
  const PendingRequest pending = {"request-1", 1, "dddd"};

  const CheckedSlots checked = check(sim, &state, &pending);

  EXPECT_EQ(checked.usable, (SlotNames{"aaaa", "bbbb", "cccc", "dddd"}));
  EXPECT_EQ(checked.ignored, SlotNames{});
}

TEST(checkSlots, looksAtThemInTheirOrder) {
  SimOs sim;
  sim.writeDelivery("seed", '1');
  for (const char* slot : {"dddd", "cccc", "bbbb", "aaaa"}) installSlot(sim, slot, '2');
  const BootState state = {.active = "dddd", .previous = "cccc", .candidate = "bbbb"};
  const PendingRequest pending = {"request-1", 1, "aaaa"};

  const CheckedSlots checked = check(sim, &state, &pending);

  EXPECT_EQ(sim.lines(),
            (Lines{ignoringLine("dddd"), ignoringLine("cccc"), ignoringLine("bbbb"), ignoringLine("aaaa")}));
  EXPECT_EQ(checked.ignored, (SlotNames{"aaaa", "bbbb", "cccc", "dddd"}));
}

TEST(checkSlots, manageWithoutStateOrRequest) {
  SimOs sim;
  installSlot(sim, "aaaa");
  const BootState empty;
  const PendingRequest pending = {"request-1", 1, "aaaa"};

  EXPECT_EQ(check(sim, nullptr).usable, SlotNames{});
  EXPECT_EQ(check(sim, &empty).usable, SlotNames{});
  EXPECT_EQ(check(sim, nullptr, &pending).usable, SlotNames{"aaaa"});
}

TEST(checkSlots, skipsAnIncompleteSlotSilently) {
  SimOs sim;
  sim.writeDelivery("seed", '1');
  sim.writeFile(sim.slotPath("aaaa", L"entry-v1.exe"), "");
  sim.writeDelivery("aaaa", '2');
  const BootState state = stateWith("aaaa");

  const CheckedSlots checked = check(sim, &state);

  EXPECT_EQ(checked.usable, SlotNames{});
  EXPECT_EQ(checked.ignored, SlotNames{});
  EXPECT_EQ(sim.lines(), Lines{});
}

TEST(checkSlots, takesEveryCompleteSlotWhereTheSeedHasNoDelivery) {
  SimOs sim;
  installSlot(sim, "aaaa");
  installSlot(sim, "bbbb", '2');
  const BootState state = {.active = "aaaa", .previous = "bbbb"};

  const CheckedSlots checked = check(sim, &state);

  EXPECT_EQ(checked.usable, (SlotNames{"aaaa", "bbbb"}));
  EXPECT_EQ(sim.lines(), Lines{});
}

// How the two delivery files lie, and whether the slot may then be used.
TEST(checkSlots, comparesDeliveries) {
  using Prepare = std::function<void(SimOs&, const std::wstring& path)>;
  const auto holding = [](const std::string& text) {
    return Prepare([text](SimOs& sim, const std::wstring& path) { sim.writeFile(path, text); });
  };
  const Prepare nothing = [](SimOs&, const std::wstring&) {};
  const Prepare unreadable = [&](SimOs& sim, const std::wstring& path) {
    sim.writeFile(path, sim::deliveryDocument('1'));
    sim.fail(Call::readFile, path);
  };
  const Prepare unknown = [&](SimOs& sim, const std::wstring& path) {
    sim.writeFile(path, sim::deliveryDocument('1'));
    sim.fail(Call::status, path);
    sim.fail(Call::readFile, path);
  };
  const Prepare directory = [](SimOs& sim, const std::wstring& path) { sim.makeDirectory(path); };
  const Prepare same = holding(sim::deliveryDocument('1'));
  const Prepare other = holding(sim::deliveryDocument('2'));
  const std::string almost = "{\"schemaVersion\":1,\"deliveryId\":\"" + std::string(63, '1') + "2\"}";
  const std::string padded = sim::deliveryDocument('1') + std::string(65536 - sim::deliveryDocument('1').size(), ' ');

  struct Case {
    const char* why;
    Prepare seed, slot;
    bool usable;
  };
  const Case cases[] = {
      {"the same delivery", same, same, true},
      {"another delivery", same, other, false},
      {"another in its last digit", same, holding(almost), false},
      {"the slot has none", same, nothing, false},
      {"the slot's is empty", same, holding(""), false},
      {"the slot's is no delivery record", same, holding("{\"schemaVersion\":1}"), false},
      {"the slot's cannot be read", same, unreadable, false},
      {"the slot's is a directory", same, directory, false},
      {"written differently, and as long as can be", same, holding(padded), true},
      {"one byte too long", same, holding(padded + " "), false},
      {"the seed's is empty", holding(""), holding(""), false},
      {"the seed's is no delivery record", holding("{}"), same, false},
      {"both are equally broken", holding("{}"), holding("{}"), false},
      {"the seed's cannot be read", unreadable, same, false},
      {"the seed's status cannot be taken", unknown, same, false},
      {"the seed's is a directory", directory, same, false},
      {"neither has one", nothing, nothing, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installSlot(sim, "aaaa");
    c.seed(sim, sim.slotPath("seed", L"delivery-v1.json"));
    c.slot(sim, sim.slotPath("aaaa", L"delivery-v1.json"));
    const BootState state = stateWith("aaaa");

    const CheckedSlots checked = check(sim, &state);

    EXPECT_EQ(checked.usable, c.usable ? SlotNames{"aaaa"} : SlotNames{});
    EXPECT_EQ(checked.ignored, c.usable ? SlotNames{} : SlotNames{"aaaa"});
    EXPECT_EQ(sim.lines(), c.usable ? Lines{} : Lines{ignoringLine("aaaa")});
  }
}

TEST(checkSlots, takesTheSeedsDeliveryForMissingOnlyOnTheSystemsWord) {
  struct Case {
    const char* why;
    std::uint32_t code;
    bool missing;
  };
  const Case cases[] = {
      {"no such file", 2, true}, {"no such path", 3, true}, {"no access", 5, false}, {"the device is gone", 21, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    installSlot(sim, "aaaa");
    sim.fail(Call::status, L"seed\\delivery-v1.json", c.code);
    const BootState state = stateWith("aaaa");

    EXPECT_EQ(check(sim, &state).usable, c.missing ? SlotNames{"aaaa"} : SlotNames{});
  }
}

TEST(checkSlots, checksASlotOnceThatIsNamedTwice) {
  SimOs sim;
  sim.writeDelivery("seed", '1');
  installSlot(sim, "aaaa", '2');
  const BootState state = {.active = "aaaa", .previous = "aaaa", .candidate = "aaaa"};
  const PendingRequest pending = {"request-1", 1, "aaaa"};

  EXPECT_EQ(check(sim, &state, &pending).ignored, SlotNames{"aaaa"});
  EXPECT_EQ(sim.lines(), Lines{ignoringLine("aaaa")});
  EXPECT_EQ(sim.count(Call::status), 4) << "the seed's delivery and three entries of the slot";

  EXPECT_EQ(check(sim, &state, &pending).ignored, SlotNames{"aaaa"});
  EXPECT_EQ(sim.lineCount(ignoringLine("aaaa")), 2) << "once for each check";
}

TEST(checkSlots, findsTheSeedsDeliveryBesideItsExecutable) {
  struct Case {
    const char* why;
    std::wstring seedEntryPath;
  };
  const Case cases[] = {
      {"one separator", L"C:\\Elsewhere\\entry-v1.exe"},
      {"a run of separators", L"C:\\Elsewhere\\\\/entry-v1.exe"},
      {"the other separator", L"C:/Elsewhere/entry-v1.exe"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    SimOs sim;
    sim.writeFile(L"C:\\Elsewhere\\delivery-v1.json", sim::deliveryDocument('1'));
    installSlot(sim, "aaaa", '1');
    installSlot(sim, "bbbb", '2');
    const BootState state = {.active = "aaaa", .previous = "bbbb"};

    const CheckedSlots checked = checkSlots(sim.stateRoot(), c.seedEntryPath, &state, nullptr, nullptr);

    EXPECT_EQ(checked.usable, SlotNames{"aaaa"});
    EXPECT_EQ(checked.ignored, SlotNames{"bbbb"});
  }
}

}  // namespace
}  // namespace launcher_stub
