#include "launcher/launch_sequence.h"

#include <optional>
#include <string>
#include <string_view>

#include "launcher/bootstrap_file.h"
#include "launcher/launch_iteration.h"
#include "launcher/messages.h"
#include "launcher/supervision.h"
#include "os/command_line.h"
#include "os/error_box.h"
#include "os/log.h"
#include "os/path.h"
#include "os/state_root.h"
#include "os/this_process.h"
#include "slots/file_names.h"
#include "slots/install_layout.h"
#include "slots/launch_context.h"

namespace launcher_stub {
namespace {

constexpr int exitFailure = 1;
constexpr int exitHeldElsewhere = 0;

int failWithBox(std::string_view message) {
  os::showError(std::string(message));
  return exitFailure;
}

bool createStateRoot(const std::wstring& stateRoot) {
  std::string error;
  const bool created = !stateRoot.empty() && os::createPrivateDirectory(stateRoot, &error) &&
                       os::createPrivateDirectory(os::joinPath(stateRoot, files::attempts), &error) &&
                       os::createPrivateDirectory(os::joinPath(stateRoot, files::slots), &error);
  if (!error.empty()) os::logLine(error);
  return created;
}

bool takeStateLock(LaunchContext& context) {
  const std::wstring path = os::joinPath(context.stateRoot, files::stateLock);
  if (os::openLockFile(context.stateLock, path, os::LockWait::fiveSeconds)) return true;
  os::logLine(messages::stateLockTimeout);
  return false;
}

int iterate(LaunchContext& context, bool bootstrapUnderstood) {
  for (;;) {
    if (!launchIteration(context, bootstrapUnderstood)) return exitFailure;
    if (context.exitRequested) return context.exitCode;
    if (superviseRuntime(context) == SupervisionEnd::exit) return context.exitCode;
    os::closeLockFile(context.stateLock);
    if (!takeStateLock(context)) return exitFailure;
  }
}

}  // namespace

int run(void* /*instance*/, void* /*previousInstance*/) {
  const InstallLayout layout = buildInstallLayout(os::parentPath(os::launcherExecutablePath()));
  std::string error;
  const std::optional<Bootstrap> bootstrap = loadBootstrap(layout, error);
  if (!bootstrap) return failWithBox(error);

  LaunchContext context;
  context.stateRoot = os::resolveStateRoot(layout.installDir, bootstrap->stateRoot);
  if (!createStateRoot(context.stateRoot)) return failWithBox(messages::cannotCreateStateRoot);
  if (!os::openLockFile(context.launchLease, os::joinPath(context.stateRoot, files::launchLock), os::LockWait::none)) {
    return context.launchLease.busy ? exitHeldElsewhere : failWithBox(messages::cannotAcquireLease);
  }
  context.installDirectory = layout.installDir;
  context.seedEntryPath = layout.seedEntryPath;
  context.arguments = os::readCommandLineArguments();
  if (!takeStateLock(context)) return exitFailure;

  os::containThisProcess();
  const int exitCode = iterate(context, bootstrap->understood);
  os::closeLockFile(context.stateLock);
  os::closeLockFile(context.launchLease);
  return exitCode;
}

}  // namespace launcher_stub
