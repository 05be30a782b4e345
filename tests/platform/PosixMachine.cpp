#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "Machine.h"

Machine::Machine() {
  std::string pattern = (std::filesystem::temp_directory_path() / "platform-XXXXXX").string();
  EXPECT_NE(mkdtemp(pattern.data()), nullptr);
  folder_ = pattern;
}

Machine::~Machine() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Machine::Put(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool Machine::Get(const std::string& path, std::string& content) {
  std::ifstream file(path, std::ios::binary);
  content.assign(std::istreambuf_iterator<char>(file), {});
  return file.is_open();
}
