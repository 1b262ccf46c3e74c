#include "state/attempt_record.h"
#include "state/boot_state.h"
#include "state/bootstrap_record.h"
#include "state/delivery_record.h"
#include "state/names.h"
#include "state/pending_request.h"
#include "state/restart_request.h"
#include "tests/fuzz/fuzz_targets.h"
#include "tests/support/exact_bytes.h"

namespace launcher_stub::fuzz {
namespace {

template <typename Record>
bool isRead(bool (*read)(std::string_view, Record&, std::string&), std::string_view bytes, Record& record) {
  const ExactBytes document(bytes);
  std::string error;
  if (read(document.view(), record, error)) return true;
  require(!error.empty(), "a failure has a text");
  return false;
}

void runBootstrap(std::string_view bytes) {
  BootstrapRecord record;
  if (!isRead(readBootstrap, bytes, record)) return;
  require(!record.installId.empty(), "an installation has an id");
  require(record.seedSlot == seedSlotName, "the seed slot is the seed");
}

void requireSlot(const std::optional<std::string>& slot) {
  if (slot) require(isSlotName(*slot), "a slot is a slot name");
}

void runBootState(std::string_view bytes) {
  BootState state;
  if (!isRead(readBootState, bytes, state)) return;
  requireSlot(state.active);
  requireSlot(state.previous);
  requireSlot(state.candidate);
  if (state.lastRequestId) require(isToken(*state.lastRequestId), "a request id is a token");
  require(state.rejected.size() <= maxRejectedSlots, "not too many slots are rejected");
  for (const std::string& slot : state.rejected) require(isSlotName(slot), "a rejected slot is a slot name");

  BootState again;
  require(isRead(readBootState, writeBootState(state), again), "what was written is read");
  require(again == state, "what was written is read back to an equal state");
}

void runPendingRequest(std::string_view bytes) {
  PendingRequest request;
  if (!isRead(readPendingRequest, bytes, request)) return;
  require(isToken(request.requestId), "a request id is a token");
  require(isSlotName(request.candidate), "a candidate is a slot name");
}

void runDelivery(std::string_view bytes) {
  DeliveryRecord record;
  if (!isRead(readDelivery, bytes, record)) return;
  require(record.deliveryId.size() == 64, "a delivery id has 64 digits");
  require(record.deliveryId.find_first_not_of("0123456789abcdef") == std::string::npos, "and nothing but digits");
}

void runAttempt(std::string_view bytes) {
  AttemptRecord record;
  if (!isRead(readAttemptRecord, bytes, record)) return;
  require(isRunnableSlotName(record.slot), "an attempt's slot is runnable");
  require(isToken(record.nonce), "a nonce is a token");

  AttemptRecord again;
  require(isRead(readAttemptRecord, writeAttemptRecord(record), again), "what was written is read");
  require(again == record, "what was written is read back to an equal record");
}

void runRestartRequest(std::string_view bytes) {
  RestartRequest request;
  if (!isRead(readRestartRequest, bytes, request)) return;
  require(isRunnableSlotName(request.slot), "a restart's slot is runnable");
  require(isToken(request.nonce), "a nonce is a token");
  if (request.requestId) require(isToken(*request.requestId), "a request id is a token");
}

const Registration registered[] = {
    Registration({"record_bootstrap", runBootstrap}),    Registration({"record_boot_state", runBootState}),
    Registration({"record_pending", runPendingRequest}), Registration({"record_delivery", runDelivery}),
    Registration({"record_attempt", runAttempt}),        Registration({"record_restart", runRestartRequest})};

}  // namespace
}  // namespace launcher_stub::fuzz
