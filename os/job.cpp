#include "os/job.h"

#include <windows.h>

namespace launcher_stub::os {

OwnedHandle createKillOnCloseJob() {
  OwnedHandle job = adoptHandle(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job == nullptr) return nullptr;
  if (!SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) return nullptr;
  return job;
}

}  // namespace launcher_stub::os
