// The condition of the documents, told by their own readers.
#pragma once

#include <string>
#include <vector>

#include "explain/findings.h"
#include "slots/install_layout.h"

namespace launcher_stub::explain {

// A reader of one kind of document. False: `error` is its text.
using Reader = bool (*)(std::string_view document, std::string& error);

DocumentFinding lookAtDocument(const std::string& name, const std::wstring& path, Reader reader);

// Bootstrap, both states, request, and the delivery of the seed; in this order.
std::vector<DocumentFinding> lookAtDocuments(const InstallLayout& layout, const std::wstring& stateRoot);

// The delivery of a slot in the store.
DocumentFinding lookAtDelivery(const std::wstring& stateRoot, const std::string& slot);

bool attemptRecordIsValid(std::string_view document, std::string& error);
bool restartRequestIsValid(std::string_view document, std::string& error);

}  // namespace launcher_stub::explain
