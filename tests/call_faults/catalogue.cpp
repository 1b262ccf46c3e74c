#include "tests/call_faults/catalogue.h"

#include <stdexcept>
#include <vector>

#include "tests/support/windows_temp_directory.h"

namespace call_faults {
namespace {

struct Row {
  std::vector<std::string> parts;  // what stands between the "<...>"
  std::string shownAs;
};

std::vector<std::string> partsOf(std::string_view text) {
  std::vector<std::string> parts;
  for (;;) {
    const std::size_t open = text.find('<');
    parts.emplace_back(text.substr(0, open));
    if (open == std::string_view::npos) return parts;
    text.remove_prefix(text.find('>', open) + 1);
  }
}

// "| `text` | shown as | ..."; rows of other tables have no word on how they are shown.
void addRow(std::string_view line, std::vector<Row>& rows) {
  if (!line.starts_with("| `")) return;
  const std::size_t end = line.find("` | ");
  if (end == std::string_view::npos) return;
  const std::string_view text = line.substr(3, end - 3);
  line.remove_prefix(end + 4);
  const std::string_view shownAs = line.substr(0, line.find(" |"));
  if (shownAs.starts_with("line") || shownAs.starts_with("box")) {
    rows.push_back({partsOf(text), std::string(shownAs)});
  }
}

const std::vector<Row>& rows() {
  static const std::vector<Row> all = [] {
    const auto text = launcher_stub::tests::readFile(launcher_stub::tests::besideThisProgram(L"messages.md"));
    if (!text) throw std::runtime_error("the message catalogue cannot be read");
    std::vector<Row> found;
    for (std::size_t at = 0; at < text->size();) {
      const std::size_t end = std::min(text->find('\n', at), text->size());
      addRow(std::string_view(*text).substr(at, end - at), found);
      at = end + 1;
    }
    if (found.size() < 25) throw std::runtime_error("the message catalogue has lost its rows");
    return found;
  }();
  return all;
}

bool matches(std::string_view text, const Row& row) {
  if (!text.starts_with(row.parts.front())) return false;
  text.remove_prefix(row.parts.front().size());
  for (std::size_t index = 1; index < row.parts.size(); ++index) {
    const bool isLast = index + 1 == row.parts.size();
    if (isLast && row.parts[index].empty()) return !text.empty();
    const std::size_t at = text.find(row.parts[index], 1);  // at least one character for what differs
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + row.parts[index].size());
  }
  return text.empty();
}

}  // namespace

bool isKnownLine(std::string_view line) {
  for (const Row& row : rows()) {
    if (matches(line, row)) return true;
  }
  return false;
}

bool isKnownBox(std::string_view text) {
  for (const Row& row : rows()) {
    if (row.shownAs.starts_with("box") && matches(text, row)) return true;
  }
  return false;
}

bool boxMeansFailure(std::string_view text) {
  for (const Row& row : rows()) {
    if (row.shownAs.starts_with("box") && row.shownAs.ends_with("exit 1") && matches(text, row)) return true;
  }
  return false;
}

}  // namespace call_faults
