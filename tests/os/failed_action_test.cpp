#include <gtest/gtest.h>

#include "os/log.h"
#include "os/messages.h"

namespace launcher_stub::os {
namespace {

TEST(failedAction, namesTheActionAndTheCodeInDecimal) {
  EXPECT_EQ(failedAction("cannot flush", 5), "cannot flush: Win32 error 5");
  EXPECT_EQ(failedAction("", 0), ": Win32 error 0");
  EXPECT_EQ(failedAction("x", 4294967295u), "x: Win32 error 4294967295");
}

TEST(messages, readExactlyAsTheyAreDocumented) {
  EXPECT_EQ(failedAction(messages::cannotDuplicateLease, 6), "cannot duplicate the launch lease: Win32 error 6");
  EXPECT_EQ(failedAction(messages::cannotBuildHandleList, 87), "cannot build the handle list: Win32 error 87");
  EXPECT_EQ(messages::cannotStart, "cannot start ");
  EXPECT_EQ(messages::cannotCreateChildJob, "cannot create child job");
  EXPECT_EQ(messages::rootBelongsToAnother, "state root belongs to another account");
  EXPECT_EQ(messages::volumeKeepsNoLists, "filesystem does not provide persistent state root ACLs");
  EXPECT_EQ(messages::listNotPersisted, "filesystem did not persist the private directory ACL");
  EXPECT_EQ(messages::listReset, "reset state root DACL to current user and system principals");
  EXPECT_EQ(messages::errorBoxTitle, L"Plinket launcher");
}

}  // namespace
}  // namespace launcher_stub::os
