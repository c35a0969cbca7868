// Runs a fuzz target on all files of a directory, for compilers that bring no fuzzer.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  int inputs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
    // Told before, for the case that it does not come back.
    fprintf(stderr, "%s\n", entry.path().c_str());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<char> text{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    ++inputs;
  }
  printf("%d inputs\n", inputs);
  return inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
