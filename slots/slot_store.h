// Which slots can be started.
#pragma once

#include <string>

#include "state/boot_state.h"
#include "state/launcher_model.h"
#include "state/pending_request.h"

namespace launcher_stub {

// `<state root>\slots\<slot>`; `slot` is a slot name, so plain ASCII.
std::wstring slotDirectory(const std::wstring& stateRoot, const std::string& slot);

// True when the name is a slot name and its directory holds the completion marker and the entry executable, as any
// kind of entry. An invalid name touches no file.
bool isSlotComplete(const std::wstring& stateRoot, const std::string& slot);

struct CheckedSlots {
  SlotNames usable;
  SlotNames ignored;  // complete, but of another delivery than the seed
};

// Is told of a slot that is ignored because of its delivery, as soon as it has been judged. May be null.
using ForeignDeliveryReport = void (*)(const std::string& slot);

// Checks each slot that the state and the request name, once. `seedEntryPath`: the seed's executable; the seed's
// delivery lies beside it. `bootState` and `pending` may be null. Incomplete slots are in neither set, silently.
CheckedSlots checkSlots(const std::wstring& stateRoot, const std::wstring& seedEntryPath, const BootState* bootState,
                        const PendingRequest* pending, ForeignDeliveryReport report);

// One diagnostic line: what a launcher gives as the report.
void reportForeignDelivery(const std::string& slot);

}  // namespace launcher_stub
