#include "slots/slot_store.h"

#include <optional>
#include <string_view>
#include <vector>

#include "os/durable_file.h"
#include "os/file_status.h"
#include "os/path.h"
#include "slots/file_names.h"
#include "state/delivery_record.h"
#include "state/names.h"

namespace launcher_stub {
namespace {

// The text of a delivery file; none where there is no file, empty where it is there and cannot be read.
std::optional<std::string> readDeliveryText(const std::wstring& directory) {
  const std::wstring path = os::joinPath(directory, files::delivery);
  if (os::pathIsMissing(path)) return std::nullopt;
  std::string text;
  (void)os::readStateFile(path, text);  // a failure leaves it empty
  return text;
}

std::optional<std::string> deliveryId(const std::optional<std::string>& text) {
  DeliveryRecord record;
  std::string error;
  if (!text || !readDelivery(*text, record, error)) return std::nullopt;
  return record.deliveryId;
}

// What a slot's delivery is held against.
struct SeedDelivery {
  bool absent = true;             // nothing to compare with: every slot matches
  std::optional<std::string> id;  // none although present: not readable as a delivery, so no slot matches
};

SeedDelivery readSeedDelivery(const std::wstring& seedEntryPath) {
  const std::optional<std::string> text = readDeliveryText(os::parentPath(seedEntryPath));
  return {!text.has_value(), deliveryId(text)};
}

bool matchesSeed(const SeedDelivery& seed, const std::wstring& directory) {
  if (seed.absent) return true;
  const std::optional<std::string> id = deliveryId(readDeliveryText(directory));
  return id && id == seed.id;
}

std::vector<std::string> namedSlots(const BootState* bootState, const PendingRequest* pending) {
  std::vector<std::string> names;
  if (bootState != nullptr) {
    for (const auto& name : {bootState->active, bootState->previous, bootState->candidate}) {
      if (name) names.push_back(*name);
    }
  }
  if (pending != nullptr) names.push_back(pending->candidate);
  return names;
}

}  // namespace

std::wstring slotDirectory(const std::wstring& stateRoot, const std::string& slot) {
  return os::joinPath(os::joinPath(stateRoot, files::slots), std::wstring(slot.begin(), slot.end()));
}

bool isSlotComplete(const std::wstring& stateRoot, const std::string& slot) {
  if (!isSlotName(slot)) return false;
  const std::wstring directory = slotDirectory(stateRoot, slot);
  return os::pathIsPresent(os::joinPath(directory, files::complete)) &&
         os::pathIsPresent(os::joinPath(directory, files::entry));
}

CheckedSlots checkSlots(const std::wstring& stateRoot, const std::wstring& seedEntryPath, const BootState* bootState,
                        const PendingRequest* pending, ForeignDeliveryReport report) {
  const SeedDelivery seed = readSeedDelivery(seedEntryPath);
  CheckedSlots result;
  SlotNames seen;
  for (const std::string& slot : namedSlots(bootState, pending)) {
    if (!seen.insert(slot).second || !isSlotComplete(stateRoot, slot)) continue;
    if (matchesSeed(seed, slotDirectory(stateRoot, slot))) {
      result.usable.insert(slot);
    } else {
      result.ignored.insert(slot);
      if (report != nullptr) report(slot);
    }
  }
  return result;
}

}  // namespace launcher_stub
