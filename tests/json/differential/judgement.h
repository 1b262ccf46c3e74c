// What a parser makes of a document, in a form that can be compared.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "json/value.h"

namespace launcher_stub::differential {

struct Judgement {
  bool accepted = false;
  JsonValue value;    // of an accepted document; of a repeated key's values the first
  std::string error;  // of our own parser
  int deepest = 0;    // depth of the deepest value begun
  bool repeatsKey = false;
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
