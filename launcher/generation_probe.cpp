#include "launcher/generation_probe.h"

#include "json/parser.h"
#include "os/durable_file.h"
#include "state/document.h"

namespace launcher_stub {

std::optional<std::uint64_t> probeGeneration(const std::wstring& path) {
  std::string document;
  if (!os::readStateFile(path, document)) return std::nullopt;

  JsonValue value;
  std::string error;
  if (!parseJsonDocument(document.data(), document.size(), value, error)) return std::nullopt;
  const JsonValue* root = asObject(&value);
  if (root == nullptr) return std::nullopt;

  const JsonValue* generation = asString(findMember(*root->object(), "generation"));
  if (generation == nullptr) return std::nullopt;
  return parseUnsigned(*generation->string());
}

}  // namespace launcher_stub
