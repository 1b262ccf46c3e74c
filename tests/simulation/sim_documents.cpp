// State documents, put together by hand: the code under test must not be the judge of its own writing.
#include "tests/simulation/sim_os.h"

namespace launcher_stub::sim {
namespace {

void appendText(std::string& out, const char* key, const std::optional<std::string>& value) {
  if (value) out += ",\"" + std::string(key) + "\":\"" + *value + "\"";
}

// For the state root in a bootstrap: backslashes are all that a path brings along.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char character : text) {
    if (character == '\\' || character == '"') out += '\\';
    out += character;
  }
  return out;
}

}  // namespace

std::string bootStateDocument(const BootState& state) {
  std::string out = "{\"schemaVersion\":1,\"generation\":" + std::to_string(state.generation) +
                    ",\"attemptCount\":" + std::to_string(state.attemptCount);
  appendText(out, "active", state.active);
  appendText(out, "previous", state.previous);
  appendText(out, "candidate", state.candidate);
  appendText(out, "lastRequestId", state.lastRequestId);
  if (state.recovered) out += ",\"recovered\":true";
  out += ",\"rejected\":[";
  for (std::size_t i = 0; i < state.rejected.size(); ++i) {
    out += (i == 0 ? "\"" : ",\"") + state.rejected[i] + "\"";
  }
  return out + "]}";
}

std::string bootstrapDocument(const std::optional<std::string>& stateRoot, int schemaVersion) {
  std::string out =
      "{\"schemaVersion\":" + std::to_string(schemaVersion) + ",\"installId\":\"simulated\",\"seedSlot\":\"seed\"";
  if (stateRoot) out += ",\"stateRoot\":\"" + escaped(*stateRoot) + "\"";
  return out + "}";
}

std::string pendingDocument(const std::string& requestId, std::uint64_t expectedGeneration,
                            const std::string& candidate) {
  return "{\"schemaVersion\":1,\"requestId\":\"" + requestId +
         "\",\"expectedGeneration\":" + std::to_string(expectedGeneration) + ",\"candidate\":\"" + candidate + "\"}";
}

std::string deliveryDocument(char digit) {
  return "{\"schemaVersion\":1,\"deliveryId\":\"" + std::string(64, digit) + "\"}";
}

}  // namespace launcher_stub::sim
