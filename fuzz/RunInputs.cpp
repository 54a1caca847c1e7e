#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

// Runs a fuzz target on files that are there, where no fuzzer is linked in: each file of each
// folder or path of the command line once. A target that finds something wrong ends the process;
// the file that it happened with is then the last one named.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void runFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  std::cout << path.string() << std::endl;
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) try {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = argv[i];
    if (!std::filesystem::exists(path)) {
      std::cerr << path.string() << " is not there\n";
      return 1;
    }
    if (!std::filesystem::is_directory(path)) {
      runFile(path);
      ++count;
      continue;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      if (entry.is_regular_file()) {
        runFile(entry.path());
        ++count;
      }
    }
  }
  std::cout << count << " inputs\n";
  // Without any input this would be a test that cannot fail.
  return count > 0 ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
