// Runs a fuzz target over the files of directories: what the fuzzer has found stays tested,
// with any compiler and on any processor.
//
// usage: vu_replay_TARGET DIRECTORY...
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
// Targets need not have it.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

int main(int count, char** arguments) {
  std::vector<std::string> files;
  for (int i = 1; i < count; ++i) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i], error)) {
      files.push_back(entry.path().string());
    }
    if (error) {
      std::fprintf(stderr, "%s: %s\n", arguments[i], error.message().c_str());
      return 1;
    }
  }
  if (files.empty()) {
    std::fprintf(stderr, "nothing to replay\n");
    return 1;
  }
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&count, &arguments);
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) {
    // Told before, so that a crash says where; taken back where all is well.
    std::fprintf(stderr, "\r%s", file.c_str());
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)),
                            std::istreambuf_iterator<char>());
    // A copy of its own, so that a sanitizer sees reading behind its end.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::fprintf(stderr, "\n");
  std::printf("* %s: %zu inputs\n", std::filesystem::path(arguments[0]).filename().c_str(),
              files.size());
  return 0;
}
