// In place of an engine, where there is none: plays the files that are named, and so many random inputs. What is being
// played stands in the file PROGRAM.input, which tells what ended the program.
//   PROGRAM [-runs=N] [-seed=N] [FILE or FOLDER]...
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

using Input = std::vector<unsigned char>;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

static void playInput(const Input& input)
{
  static const std::string name = std::string(program_invocation_short_name) + ".input";
  static const int file = open(name.c_str(), O_WRONLY | O_CREAT, 0666);
  if (pwrite(file, input.data(), input.size(), 0) < 0 || ftruncate(file, static_cast<off_t>(input.size())) < 0)
    std::perror(name.c_str());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

int main(int argc, char** argv)
{
  std::uint64_t runs = 0, seed = 1;
  std::vector<std::filesystem::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (!std::strncmp(argv[i], "-runs=", 6)) runs = std::strtoull(argv[i] + 6, nullptr, 0);
    else if (!std::strncmp(argv[i], "-seed=", 6)) seed = std::strtoull(argv[i] + 6, nullptr, 0);
    else if (std::filesystem::is_directory(argv[i]))
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) paths.push_back(entry.path());
    else paths.emplace_back(argv[i]);
  }
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "%s cannot be read\n", path.c_str());
      return 2;
    }
    playInput(Input(std::istreambuf_iterator<char>(file), {}));
  }
  std::uint64_t state = (seed + 1) * 0x9E3779B97F4A7C15u;
  const auto next = [&] {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    return static_cast<std::uint32_t>(state >> 32);
  };
  for (std::uint64_t run = 0; run < runs; ++run) {
    Input input(16 + next() % 300);
    for (unsigned char& byte : input) byte = static_cast<unsigned char>(next());
    playInput(input);
  }
  std::printf("%zu files, %llu random inputs\n", paths.size(), static_cast<unsigned long long>(runs));
  return paths.size() + runs ? 0 : 1;
}
