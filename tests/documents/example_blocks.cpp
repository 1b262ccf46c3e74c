#include "documents/example_blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace documents {
namespace {

const std::filesystem::path root = PROJECT_ROOT;

void addDocumentsOf(const std::filesystem::path& directory, std::vector<std::string>& found) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".md") found.push_back(std::filesystem::relative(entry.path(), root).string());
  }
}

}  // namespace

std::string readDocument(const std::string& path) {
  std::ifstream file(root / path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

std::vector<std::string> allDocuments() {
  std::vector<std::string> found;
  for (const char* directory : {".", "docs", "examples/sample_runtime"}) addDocumentsOf(root / directory, found);
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<Block> blocksOf(const std::string& path) {
  std::istringstream lines(readDocument(path));
  std::vector<Block> blocks;
  bool inside = false;
  std::size_t indentation = 0;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::size_t start = line.find_first_not_of(' ');
    const bool isFence = start != std::string::npos && line.compare(start, 3, "```") == 0;
    if (isFence && !inside) {
      Block block;
      block.place = path + ":" + std::to_string(number);
      std::istringstream information(line.substr(start + 3));
      information >> block.language >> std::ws;
      std::getline(information, block.words);
      blocks.push_back(block);
      indentation = start;
    } else if (!isFence && inside) {
      blocks.back().content += line.substr(std::min(indentation, line.size())) + "\n";
    }
    if (isFence) inside = !inside;
  }
  EXPECT_FALSE(inside) << path << ": a block without an end";
  return blocks;
}

}  // namespace documents
