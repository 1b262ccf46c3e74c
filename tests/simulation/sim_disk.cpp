#include "tests/simulation/sim_disk.h"

#include <algorithm>
#include <utility>

#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

constexpr int longestLinkChain = 32;

Node makeNode(NodeKind kind, std::wstring_view path, std::uint64_t time) {
  Node node;
  node.kind = kind;
  node.name = lastElementOf(path);
  node.lastWriteTime = time;
  return node;
}

// The system takes no such name, and says so by an error of its own.
bool isImpossible(std::wstring_view path) {
  return std::ranges::any_of(path, [](wchar_t c) {  // asked in every tick that finds no marker
    return c == L'<' || c == L'>' || c == L'"' || c == L'|' || c == L'?' || c == L'*';
  });
}

std::wstring_view withoutTrailingSeparators(std::wstring_view path) {
  while (!path.empty() && (path.back() == L'\\' || path.back() == L'/')) path.remove_suffix(1);
  return path;
}

}  // namespace

Disk::Disk() { nodes_[L"c:"] = makeNode(NodeKind::directory, L"C:", 0); }

// Element by element from the left: a link on the way is replaced by its target, and the walk starts anew.
std::wstring Disk::keyOf(std::wstring_view path, bool followLast) const {
  std::wstring key = pathKey(path);
  if (links_ == 0) return key;
  for (int followed = 0; followed < longestLinkChain; ++followed) {
    std::size_t end = 0;
    const Node* link = nullptr;
    while (link == nullptr && end != key.size()) {
      end = std::min(key.find(L'\\', end + 1), key.size());
      if (end == key.size() && !followLast) break;
      const auto found = nodes_.find(key.substr(0, end));
      if (found != nodes_.end() && found->second.kind == NodeKind::link) link = &found->second;
    }
    if (link == nullptr) return key;
    key = pathKey(link->linkTarget) + key.substr(end);
  }
  return key;
}

const Node* Disk::find(std::wstring_view path) const {
  const auto found = nodes_.find(keyOf(path, true));
  return found == nodes_.end() ? nullptr : &found->second;
}

const Node* Disk::findItself(std::wstring_view path) const {
  const auto found = nodes_.find(keyOf(path, false));
  return found == nodes_.end() ? nullptr : &found->second;
}

std::uint32_t Disk::missingError(std::wstring_view path) const {
  if (isImpossible(path)) return win32::invalidName;
  const auto parent = nodes_.find(parentOf(keyOf(path, false)));  // links on the way are followed
  const bool isThere = parent != nodes_.end() && parent->second.kind == NodeKind::directory;
  return isThere ? win32::fileNotFound : win32::pathNotFound;
}

std::wstring Disk::resolvedKey(std::wstring_view path) const { return keyOf(path, true); }

std::vector<Node> Disk::list(std::wstring_view path) const {
  const std::wstring prefix = keyOf(path, true) + L"\\";
  std::vector<std::pair<std::wstring, Node>> found;
  for (auto entry = nodes_.lower_bound(prefix); entry != nodes_.end() && entry->first.starts_with(prefix); ++entry) {
    if (entry->first.find(L'\\', prefix.size()) == std::wstring::npos) found.emplace_back(entry->first, entry->second);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.second.listingRank < b.second.listingRank; });
  std::vector<Node> nodes;
  for (auto& entry : found) nodes.push_back(std::move(entry.second));
  return nodes;
}

std::uint32_t Disk::addNode(std::wstring_view path, Node node, std::uint64_t time) {
  if (isImpossible(path)) return win32::invalidName;
  const std::wstring key = keyOf(path, false);
  const auto parent = nodes_.find(parentOf(key));
  if (parent == nodes_.end() || parent->second.kind != NodeKind::directory) return win32::pathNotFound;
  if (nodes_.contains(key)) return win32::alreadyExists;
  if (node.kind == NodeKind::link) ++links_;
  noteChange(key, time, /*isWrite=*/!node.contents.empty());
  nodes_[key] = std::move(node);
  touch(parentOf(key), time);
  return win32::success;
}

void Disk::eraseNode(const std::wstring& key, std::uint64_t time) {
  const auto found = nodes_.find(key);
  if (found->second.kind == NodeKind::link) --links_;
  noteChange(key, time);
  nodes_.erase(found);
  touch(parentOf(key), time);
}

bool Disk::hasChildren(const std::wstring& key) const {
  const std::wstring prefix = key + L"\\";
  const auto next = nodes_.lower_bound(prefix);
  return next != nodes_.end() && next->first.starts_with(prefix);
}

void Disk::touch(const std::wstring& key, std::uint64_t time) {
  const auto found = nodes_.find(key);
  if (found != nodes_.end()) found->second.lastWriteTime = time;
}

std::uint32_t Disk::makeDirectory(std::wstring_view path, std::uint64_t time) {
  path = withoutTrailingSeparators(path);
  return addNode(path, makeNode(NodeKind::directory, path, time), time);
}

void Disk::makeDirectories(std::wstring_view path, std::uint64_t time) {
  path = withoutTrailingSeparators(path);
  if (path.empty() || find(path) != nullptr) return;
  makeDirectories(parentOf(path), time);
  (void)makeDirectory(path, time);  // fails on a drive that is not there, which the next step of the caller meets
}

std::uint32_t Disk::makeLink(std::wstring_view path, std::wstring_view target, std::uint64_t time) {
  Node node = makeNode(NodeKind::link, path, time);
  node.linkTarget = target;
  return addNode(path, std::move(node), time);
}

std::uint32_t Disk::writeFile(std::wstring_view path, std::string_view contents, std::uint64_t time) {
  const auto existing = nodes_.find(keyOf(path, true));
  if (existing == nodes_.end()) {
    Node node = makeNode(NodeKind::file, path, time);
    node.contents = contents;
    return addNode(path, std::move(node), time);
  }
  if (existing->second.kind != NodeKind::file || existing->second.readOnly) return win32::accessDenied;
  noteChange(existing->first, time, /*isWrite=*/true);
  existing->second.contents = contents;
  existing->second.lastWriteTime = time;
  return win32::success;
}

std::uint32_t Disk::removeFile(std::wstring_view path, std::uint64_t time) {
  const std::wstring key = keyOf(path, false);
  const auto found = nodes_.find(key);
  if (found == nodes_.end()) return missingError(path);
  if (found->second.kind != NodeKind::file || found->second.readOnly) return win32::accessDenied;
  eraseNode(key, time);
  return win32::success;
}

std::uint32_t Disk::removeDirectory(std::wstring_view path, std::uint64_t time) {
  const std::wstring key = keyOf(path, false);
  const auto found = nodes_.find(key);
  if (found == nodes_.end()) return missingError(path);
  if (found->second.kind == NodeKind::file) return win32::notADirectory;
  if (found->second.kind == NodeKind::directory && hasChildren(key)) return win32::directoryNotEmpty;
  eraseNode(key, time);
  return win32::success;
}

std::uint32_t Disk::rename(std::wstring_view source, std::wstring_view target, std::uint64_t time) {
  const std::wstring from = keyOf(source, false);
  const std::wstring to = keyOf(target, false);
  const auto moved = nodes_.find(from);
  if (moved == nodes_.end()) return missingError(source);
  const auto replaced = nodes_.find(to);
  if (replaced != nodes_.end() && (replaced->second.kind != NodeKind::file || replaced->second.readOnly)) {
    return win32::accessDenied;
  }
  if (!nodes_.contains(parentOf(to))) return win32::pathNotFound;
  Node node = moved->second;
  node.name = lastElementOf(target);
  const bool flushed = std::ranges::none_of(
      unsettled_, [&from](const UnsettledChange& change) { return change.key == from && change.isWrite; });
  nodes_.erase(moved);
  touch(parentOf(from), time);
  std::erase_if(unsettled_, [&](const UnsettledChange& change) {
    return change.key == from || change.key == to || to.starts_with(change.key + L"\\");
  });
  nodes_[to] = std::move(node);
  touch(parentOf(to), time);
  if (!flushed) {
    unsettled_.push_back({time, to, nodes_[to], true});
    unsettled_.back().before->contents.clear();  // the name is safe, the contents are not
  }
  return win32::success;
}

void Disk::flushFile(std::wstring_view path) {
  const std::wstring key = keyOf(path, true);
  std::erase_if(unsettled_, [&](const UnsettledChange& change) {
    return change.key == key && change.before && change.before->kind == NodeKind::file;
  });
  for (UnsettledChange& change : unsettled_) {
    if (change.key == key) change.isWrite = false;
  }
}

void Disk::settle() { unsettled_.clear(); }

void Disk::noteChange(const std::wstring& key, std::uint64_t time, bool isWrite) {
  std::erase_if(unsettled_, [time](const UnsettledChange& change) { return change.time + settlesAfter <= time; });
  const auto found = nodes_.find(key);
  unsettled_.push_back({time, key, found == nodes_.end() ? std::optional<Node>() : found->second, isWrite});
}

Node* Disk::attributes(std::wstring_view path) {
  const auto found = nodes_.find(keyOf(path, false));
  return found == nodes_.end() ? nullptr : &found->second;
}

std::string Disk::describe() const {
  std::string text;
  for (const auto& [key, node] : nodes_) {
    text += "  " + printable(key);
    if (node.kind == NodeKind::directory) text += "\\";
    if (node.kind == NodeKind::link) text += " -> " + printable(node.linkTarget);
    if (node.kind == NodeKind::file) text += " = " + node.contents.substr(0, 400);
    text += "\n";
  }
  return text;
}

}  // namespace launcher_stub::sim
