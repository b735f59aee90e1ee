// Memory between two pages without access.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace zoritest {

// Whole pages, at least `bytes` long: reads and writes in front of begin() and behind end() - 1 end the program. They
// cost memory when they are touched.
class GuardedBlock {
public:
  static std::size_t pageBytes() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }
  static std::size_t sizeFor(std::size_t bytes) { return (bytes + pageBytes() - 1) / pageBytes() * pageBytes(); }

  explicit GuardedBlock(std::size_t bytes) : size_(sizeFor(bytes))
  {
    void* const all =
      mmap(nullptr, size_ + 2 * pageBytes(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED || mprotect(static_cast<char*>(all) + pageBytes(), size_, PROT_READ | PROT_WRITE) != 0) {
      std::perror("no memory for a test image");
      std::abort();
    }
    begin_ = static_cast<unsigned char*>(all) + pageBytes();
  }
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;
  ~GuardedBlock() { munmap(begin_ - pageBytes(), size_ + 2 * pageBytes()); }

  unsigned char* begin() const { return begin_; }
  unsigned char* end() const { return begin_ + size_; }
  std::size_t size() const { return size_; }

private:
  std::size_t size_;
  unsigned char* begin_;
};

} // namespace zoritest
