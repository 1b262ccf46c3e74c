// The fenced blocks of this project's own Markdown.
#pragma once

#include <string>
#include <vector>

namespace documents {

struct Block {
  std::string place;     // "docs/integrators-guide.md:46", the line of its fence
  std::string language;  // first word behind the fence: "json"; empty for none
  std::string words;     // what follows it: "boot-v1.json invalid \"invalid slot\""
  std::string content;   // its lines, without the indentation of the fence
};

// `path`: below the project's root. Fails the test that asks when the file cannot be read or a block has no end.
std::vector<Block> blocksOf(const std::string& path);

// README.md and the like, and all of docs/: paths below the root.
std::vector<std::string> allDocuments();

std::string readDocument(const std::string& path);

}  // namespace documents
