// Runs a fuzzer's entry once for each file of the folders given, so that the seeds are tests in every build.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> FilesOf(const char* folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Replay(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  // An exact-size copy, so that a sanitizer sees a read past the end.
  const std::vector<std::uint8_t> bytes(content.begin(), content.end());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : FilesOf(argv[i])) {
      Replay(file);
      ++replayed;
    }
  }
  std::printf("%zu inputs replayed\n", replayed);
  return replayed == 0 ? 1 : 0;
}
