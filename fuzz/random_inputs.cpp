// In place of an engine: plays the files that are named, then random inputs: so many of them, or so many calls, or
// for so many seconds. What is being played stands in the file PROGRAM-SEED.input, which tells what ended the
// program. A file FILE.pack holds many inputs (fuzz/pack.py).
//   PROGRAM [-runs=N] [-calls=N] [-seconds=N] [-seed=N] [FILE or FOLDER]...
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using Input = std::vector<unsigned char>;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);
extern "C" unsigned long long callsPlayed();

// Inputs one behind the other, each behind its length in two bytes, the low one first.
static std::vector<Input> unpacked(const Input& pack)
{
  std::vector<Input> inputs;
  for (std::size_t at = 0; at < pack.size();) {
    const std::size_t length = at + 2 <= pack.size() ? pack[at] | std::size_t{pack[at + 1]} << 8 : pack.size();
    if (length > pack.size() - at - 2) {
      std::fprintf(stderr, "the pack ends within an input\n");
      std::exit(2);
    }
    const auto first = pack.begin() + static_cast<std::ptrdiff_t>(at) + 2;
    inputs.emplace_back(first, first + static_cast<std::ptrdiff_t>(length));
    at += 2 + length;
  }
  return inputs;
}

// A file that is memory: what stands in it survives the program, and costs no call of the system.
class InputFile {
public:
  InputFile(const std::string& name, std::size_t most)
    : name_(name), file_(open(name.c_str(), O_RDWR | O_CREAT, 0666)), most_(most)
  {
    resize(most);
    void* const all = mmap(nullptr, most, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
    if (all == MAP_FAILED) fail();
    bytes_ = static_cast<unsigned char*>(all);
  }
  void play(const Input& input)
  {
    if (input.size() > most_) {
      std::fprintf(stderr, "an input of more than %zu bytes\n", most_);
      std::exit(2);
    }
    if (input.size() != size_) resize(input.size());
    if (size_) std::memcpy(bytes_, input.data(), size_);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  void remove() { unlink(name_.c_str()); }

private:
  void fail()
  {
    std::perror(name_.c_str());
    std::exit(2);
  }
  void resize(std::size_t bytes)
  {
    if (ftruncate(file_, static_cast<off_t>(bytes)) < 0) fail();
    size_ = bytes;
  }

  std::string name_;
  int file_;
  std::size_t most_, size_ = 0;
  unsigned char* bytes_ = nullptr;
};

int main(int argc, char** argv)
{
  using Clock = std::chrono::steady_clock;
  mallopt(M_MMAP_THRESHOLD, 1 << 28), mallopt(M_TRIM_THRESHOLD, 1 << 28); // memory that was touched is kept
  std::uint64_t runs = 0, calls = 0, seconds = 0, seed = 1, played = 0, given = 0;
  std::vector<std::filesystem::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (!std::strncmp(argv[i], "-runs=", 6)) runs = std::strtoull(argv[i] + 6, nullptr, 0);
    else if (!std::strncmp(argv[i], "-calls=", 7)) calls = std::strtoull(argv[i] + 7, nullptr, 0);
    else if (!std::strncmp(argv[i], "-seconds=", 9)) seconds = std::strtoull(argv[i] + 9, nullptr, 0);
    else if (!std::strncmp(argv[i], "-seed=", 6)) seed = std::strtoull(argv[i] + 6, nullptr, 0);
    else if (std::filesystem::is_directory(argv[i]))
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) paths.push_back(entry.path());
    else paths.emplace_back(argv[i]);
  }
  InputFile file(std::string(program_invocation_short_name) + "-" + std::to_string(seed) + ".input", 1 << 16);
  for (const auto& path : paths) {
    std::ifstream bytes(path, std::ios::binary);
    if (!bytes) {
      std::fprintf(stderr, "%s cannot be read\n", path.c_str());
      return 2;
    }
    const Input all(std::istreambuf_iterator<char>(bytes), {});
    for (const Input& input : path.extension() == ".pack" ? unpacked(all) : std::vector<Input>{all}) {
      file.play(input);
      ++given;
    }
  }
  calls = calls ? calls + callsPlayed() : 0; // random ones
  std::uint64_t state = (seed + 1) * 0x9E3779B97F4A7C15u;
  const auto next = [&] {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    return state * 0x2545F4914F6CDD1Du;
  };
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  Input input;
  const auto isOver = [&] {
    return played >= runs && callsPlayed() >= calls && (!seconds || (played % 16 == 0 && Clock::now() >= end));
  };
  for (; !isOver(); ++played) {
    if (played % 64 == 0) input.resize(64 + next() % 120 * 8); // a length for some inputs
    for (std::size_t i = 0; i < input.size(); i += 8) {
      const std::uint64_t word = next();
      std::memcpy(&input[i], &word, 8);
    }
    file.play(input);
  }
  file.remove();
  std::printf("%llu given inputs, %llu random ones\n", static_cast<unsigned long long>(given),
              static_cast<unsigned long long>(played));
  return given + played ? 0 : 1;
}
