// Documents for parsers to disagree about: valid ones of any shape, valid ones with a few bytes changed, and ones that
// press one rule of the syntax.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>

namespace launcher_stub::differential {

class DocumentGenerator {
 public:
  explicit DocumentGenerator(std::uint64_t seed) : random_(seed) {}

  std::string next();

 private:
  // Below `limit`, which is not zero.
  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool oneIn(std::size_t count) { return below(count) == 0; }
  std::string_view any(std::span<const std::string_view> pieces) { return pieces[below(pieces.size())]; }
  std::string several(std::span<const std::string_view> pieces, std::size_t most);

  std::string value(int depth);
  std::string array(int depth);
  std::string object(int depth);
  std::string text();
  std::string number();
  std::string space();

  std::string bytesOfUtf8();
  std::string mutated(std::string document);

  std::mt19937_64 random_;
};

}  // namespace launcher_stub::differential
