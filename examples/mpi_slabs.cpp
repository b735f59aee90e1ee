// A picture in slabs of rows, a slab a process (MPI): no process holds more than its slab and the margin that the
// filters read around it. The result equals that of one process over the whole picture.
//
//   mpirun -n 2 example_mpi_slabs [WIDTH HEIGHT]
#include <mpi.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "zori.hpp"

namespace {

using Bytes = zori::Image<Zor8u, zori::C1>;

const ZorImgSize mask = {31, 31};
const ZorImgPoint anchor = {15, 15};
constexpr int margin = 15; // on every side, by the formulas of zoriFilterBox

// `count` rows of a picture of any height from row `first`: a process draws its own, as it would read its own.
void draw(Zor8u* rows, int step, int width, int first, int count)
{
  for (int y = 0; y < count; y++)
    for (int x = 0; x < width; x++)
      rows[y * step + x] = Zor8u((x * x + 3 * (first + y) * (first + y) + 5 * x * (first + y)) >> 6);
}

// A slab with room for the margins, which are filled before each filter.
struct Slab {
  Bytes framed;
  int width, height;

  Slab(int columns, int rows) : framed(columns + 2 * margin, rows + 2 * margin), width(columns), height(rows) {}
  zori::View<Zor8u, zori::C1> rows() { return framed.view().within(margin, margin, margin, margin); }
  Zor8u* row(int y) { return rows().row(y); }
};

// Rows above and below come from the neighbours, where there are any, and repeat the edge where the picture ends; so do
// the columns. The border function makes all of them first, then the neighbours' rows replace what is theirs, whole.
bool fillMargins(Slab& slab, int rank, int ranks)
{
  const int step = slab.framed.view().step(), above = rank > 0 ? rank - 1 : MPI_PROC_NULL,
            below = rank + 1 < ranks ? rank + 1 : MPI_PROC_NULL;
  const ZorImgSize inner = {slab.width, slab.height}, outer = {slab.width + 2 * margin, slab.height + 2 * margin};
  if (zoriCopyReplicateBorder_8u_C1IR(slab.row(0), step, inner, outer, margin, margin) != ZorOk) return false;
  MPI_Datatype lines; // `margin` rows with their own margins
  MPI_Type_vector(margin, slab.width + 2 * margin, step, MPI_BYTE, &lines);
  MPI_Type_commit(&lines);
  const auto line = [&](int y) { return slab.row(y) - margin; };
  MPI_Sendrecv(line(slab.height - margin), 1, lines, below, 0, line(-margin), 1, lines, above, 0, MPI_COMM_WORLD,
               MPI_STATUS_IGNORE);
  MPI_Sendrecv(line(0), 1, lines, above, 1, line(slab.height), 1, lines, below, 1, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
  MPI_Type_free(&lines);
  return true;
}

// Smooths twice: the second filter's margins are the first one's results, so they are exchanged again.
bool smoothTwice(Slab& slab, Slab& other, int rank, int ranks)
{
  return fillMargins(slab, rank, ranks) && zori::filterBox(slab.rows(), other.rows(), mask, anchor).ok() &&
         fillMargins(other, rank, ranks) && zori::filterBox(other.rows(), slab.rows(), mask, anchor).ok();
}

} // namespace

int main(int argc, char** argv)
{
  MPI_Init(&argc, &argv);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  const int width = argc > 2 ? std::atoi(argv[1]) : 1500, height = argc > 2 ? std::atoi(argv[2]) : 1001;
  const auto firstRow = [&](int r) { return int(std::int64_t(height) * r / ranks); };
  const int first = firstRow(rank), count = firstRow(rank + 1) - first;
  if (width < 1 || height / ranks < margin) {
    if (rank == 0) std::printf("%d rows are too few for %d processes\n", height, ranks);
    MPI_Finalize();
    return 1;
  }

  Slab slab(width, count), other(width, count);
  bool good = slab.framed.ok() && other.framed.ok();
  if (!good) MPI_Abort(MPI_COMM_WORLD, 1);
  draw(slab.row(0), slab.framed.view().step(), width, first, count);
  MPI_Barrier(MPI_COMM_WORLD);
  const double start = MPI_Wtime();
  good = smoothTwice(slab, other, rank, ranks);
  MPI_Barrier(MPI_COMM_WORLD);
  const double seconds = MPI_Wtime() - start;
  if (!good) MPI_Abort(MPI_COMM_WORLD, 1);

  // To be compared, the slabs are gathered; a picture too large for one memory would be written from where it lies.
  std::vector<Zor8u> packed(std::size_t(width) * count), whole(rank == 0 ? std::size_t(width) * height : 0);
  for (int y = 0; y < count; y++) std::copy(slab.row(y), slab.row(y) + width, packed.begin() + std::size_t(y) * width);
  std::vector<int> counts, places;
  for (int r = 0; r < ranks; r++) {
    counts.push_back(firstRow(r + 1) - firstRow(r));
    places.push_back(firstRow(r));
  }
  MPI_Datatype line;
  MPI_Type_contiguous(width, MPI_BYTE, &line);
  MPI_Type_commit(&line);
  MPI_Gatherv(packed.data(), count, line, whole.data(), counts.data(), places.data(), line, 0, MPI_COMM_WORLD);
  MPI_Type_free(&line);
  int failed = 0;
  if (rank == 0) {
    Slab single(width, height), spare(width, height);
    draw(single.row(0), single.framed.view().step(), width, 0, height);
    failed = !smoothTwice(single, spare, 0, 1);
    for (int y = 0; y < height && !failed; y++)
      failed = !std::equal(single.row(y), single.row(y) + width, whole.begin() + std::size_t(y) * width);
    std::printf("%d x %d in %d slabs: %.2f ms, %s the single run\n", width, height, ranks, 1e3 * seconds,
                failed ? "DIFFERENT from" : "equal to");
  }
  MPI_Finalize();
  return failed;
}
