#include "launcher/bootstrap_file.h"

#include <string_view>

#include "json/parser.h"
#include "launcher/messages.h"
#include "os/durable_file.h"
#include "state/bootstrap_record.h"
#include "state/messages.h"

namespace launcher_stub {
namespace {

// The one member that is read of a bootstrap whose major version is not known.
std::string stateRootOfNewerBootstrap(std::string_view document) {
  JsonValue value;
  std::string error;
  if (!parseJsonDocument(document.data(), document.size(), value, error)) return {};
  const JsonValue* root = asObject(&value);
  if (root == nullptr) return {};
  const JsonValue* stateRoot = asString(findMember(*root->object(), "stateRoot"));
  return stateRoot != nullptr ? std::string(*stateRoot->string()) : std::string();
}

}  // namespace

std::optional<Bootstrap> loadBootstrap(const InstallLayout& layout, std::string& error) {
  std::string document;
  if (layout.installDir.empty() || !os::readStateFile(layout.bootstrapPath, document)) {
    error = std::string(messages::missingBootstrap);
    return std::nullopt;
  }
  BootstrapRecord record;
  if (readBootstrap(document, record, error)) return Bootstrap{true, record.stateRoot.value_or("")};
  if (error == messages::unsupportedMajor) return Bootstrap{false, stateRootOfNewerBootstrap(document)};
  error = std::string(messages::invalidBootstrapDocument) + error;
  return std::nullopt;
}

}  // namespace launcher_stub
