// An image of more bytes than the machine may have: all of its rows are the same piece of memory, mapped again and
// again.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace zoritest {

class RepeatedRows {
public:
  // `rowBytes`: whole pages.
  RepeatedRows(std::size_t rowBytes, std::size_t rows) : bytes_(rowBytes * rows)
  {
    const int file = memfd_create("row", 0);
    bool isMade = file >= 0 && ftruncate(file, static_cast<off_t>(rowBytes)) == 0;
    void* const all = mmap(nullptr, bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    isMade = isMade && all != MAP_FAILED;
    first_ = static_cast<unsigned char*>(all);
    for (std::size_t y = 0; isMade && y < rows; ++y)
      isMade =
        mmap(first_ + y * rowBytes, rowBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) != MAP_FAILED;
    if (!isMade) {
      std::perror("no addresses for a large image");
      std::abort();
    }
    close(file);
  }
  RepeatedRows(const RepeatedRows&) = delete;
  RepeatedRows& operator=(const RepeatedRows&) = delete;
  ~RepeatedRows() { munmap(first_, bytes_); }

  unsigned char* row() const { return first_; }

private:
  std::size_t bytes_;
  unsigned char* first_;
};

} // namespace zoritest
