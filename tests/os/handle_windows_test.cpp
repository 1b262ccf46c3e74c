#include "os/handle.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace launcher_stub::os {
namespace {

TEST(adoptHandle, makesBothWaysToSayNoHandleNull) {
  EXPECT_EQ(adoptHandle(nullptr), nullptr);
  EXPECT_EQ(adoptHandle(INVALID_HANDLE_VALUE), nullptr);
}

TEST(ownedHandle, isClosedOnceAtTheEndOfItsScope) {
  HANDLE raw = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD flags = 0;
  {
    const OwnedHandle owned = adoptHandle(raw);
    EXPECT_TRUE(GetHandleInformation(raw, &flags));
  }
  EXPECT_FALSE(GetHandleInformation(raw, &flags));
}

TEST(ownedHandle, closesWhatAnAssignmentReplaces) {
  HANDLE first = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  OwnedHandle owned = adoptHandle(first);

  owned = adoptHandle(CreateMutexW(nullptr, FALSE, nullptr));

  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(owned.get(), &flags));
  // The number may have been given to the mutex; it is no event any more in any case.
  EXPECT_FALSE(SetEvent(first));
}

TEST(ownedHandle, keepsTheLastErrorWhenItCloses) {
  OwnedHandle good = adoptHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  OwnedHandle dead(reinterpret_cast<void*>(std::uintptr_t{0x7F04}));  // closing it fails

  SetLastError(1234);
  good.reset();
  EXPECT_EQ(GetLastError(), 1234u);
  dead.reset();
  EXPECT_EQ(GetLastError(), 1234u);
}

}  // namespace
}  // namespace launcher_stub::os
