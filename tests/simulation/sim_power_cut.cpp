#include "tests/simulation/sim_power_cut.h"

#include <stdexcept>

#include "tests/simulation/sim_paths.h"

namespace launcher_stub::sim {
namespace {

constexpr std::size_t mostImages = 20'000;

enum Outcome { kept, lost, cutOff, zeros };

// The number's digits, each in its own base. False: there is no further number.
bool nextCombination(std::vector<int>& digits, const std::vector<int>& bases) {
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (++digits[i] < bases[i]) return true;
    digits[i] = 0;
  }
  return false;
}

std::string partOf(const std::string& contents, int outcome) {
  return outcome == cutOff ? contents.substr(0, contents.size() / 2) : std::string(contents.size(), '\0');
}

}  // namespace

PowerCut::PowerCut(const Disk& disk, std::uint64_t time) : disk_(disk) {
  for (const UnsettledChange& change : disk.unsettled()) {
    if (change.time + settlesAfter > time) changes_.push_back(change);
  }
}

std::vector<Disk> PowerCut::images(bool (*isNeverLookedAt)(const std::wstring& key)) const {
  const auto isOfNoConsequence = [&](const UnsettledChange& change) {
    return isNeverLookedAt != nullptr && isNeverLookedAt(change.key);
  };
  std::vector<int> bases;
  std::size_t count = 1;
  for (const UnsettledChange& change : changes_) {
    bases.push_back(isOfNoConsequence(change) ? 1 : outcomeCount(change));
    count *= static_cast<std::size_t>(bases.back());
    if (count > mostImages) throw std::length_error("too many unsettled changes to try every combination");
  }
  std::vector<Disk> images;
  images.reserve(count);
  std::vector<int> outcomes(changes_.size(), kept);
  do {
    std::vector<int> all = outcomes;
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (isOfNoConsequence(changes_[i])) all[i] = images.size() % 2 == 0 ? kept : lost;
    }
    images.push_back(imageOf(all));
  } while (nextCombination(outcomes, bases));
  return images;
}

// The last change first, so that of several lost changes of one entry the oldest decides.
Disk PowerCut::imageOf(const std::vector<int>& outcomes) const {
  Disk image = disk_;
  image.settle();
  for (std::size_t i = changes_.size(); i-- > 0;) {
    const UnsettledChange& change = changes_[i];
    if (outcomes[i] == kept) continue;
    const auto found = image.nodes_.find(change.key);
    const bool isLink = found != image.nodes_.end() && found->second.kind == NodeKind::link;
    if (outcomes[i] == lost) {
      if (isLink) --image.links_;
      if (change.before && change.before->kind == NodeKind::link) ++image.links_;
      if (change.before) {
        image.nodes_[change.key] = *change.before;
      } else {
        image.nodes_.erase(change.key);
      }
    } else if (found != image.nodes_.end()) {
      found->second.contents = partOf(found->second.contents, outcomes[i]);
    }
  }
  // What lay in a directory that is not there, at whatever depth: parents come before their children.
  std::erase_if(image.nodes_, [&image](const auto& entry) {
    const std::wstring parent = parentOf(entry.first);
    return !parent.empty() && !image.nodes_.contains(parent);
  });
  return image;
}

}  // namespace launcher_stub::sim
