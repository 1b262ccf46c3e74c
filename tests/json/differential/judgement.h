// What a parser makes of a document, in a form that can be compared.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "json/value.h"

namespace launcher_stub::differential {

// What the strings or the keys of a document hold, decoded.
struct Texts {
  std::size_t longest = 0;     // bytes
  bool holdSurrogate = false;  // encoded, for itself; only an escape can bring it in

  void note(std::string_view text);
};

struct Judgement {
  bool accepted = false;
  JsonValue value;    // of an accepted document; of a repeated key's values the first
  std::string error;  // of our own parser
  int deepest = 0;    // depth of the deepest value begun
  bool repeatsKey = false;
  Texts strings, keys;
  bool holdsHugeNumber = false;  // one that no double can hold
};

Judgement judgeByOurs(std::string_view document);
Judgement judgeByRapidJson(std::string_view document);
Judgement judgeByNlohmann(std::string_view document);

// Builds a value from a parser's events, and notes what our limits are about.
class ValueBuilder {
 public:
  explicit ValueBuilder(Judgement& judgement) : judgement_(judgement) {}

  bool add(JsonValue value);
  bool begin();
  bool key(std::string_view key);
  bool endArray();
  bool endObject();

 private:
  struct Container {
    JsonArray elements;
    JsonObject members;
    std::string key;
    bool hasKey = false;
  };

  void noteDepth();

  Judgement& judgement_;
  std::vector<Container> open_;
};

}  // namespace launcher_stub::differential
