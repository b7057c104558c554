// floor TABLE ROWS: does only what a run needs of the kernel and the memory. Reads the table once,
// writes an intermediate file of the usual size, reads it back, fills the five data vectors (36
// bytes a row) and passes six times over the two residual vectors. No parsing, no formatting and
// hardly any arithmetic.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>
int main(int, char **v) {
  size_t rows = strtoull(v[2], nullptr, 10);
  std::vector<char> b(1 << 17);
  ssize_t n;
  size_t total = 0, want = rows * 25;
  int t = open(v[1], O_RDONLY);
  while ((n = read(t, b.data(), b.size())) > 0) total += n;
  int o = open("floor.tmp", O_RDWR | O_CREAT | O_TRUNC, 0666);
  for (size_t w = 0; w < want;) {
    ssize_t k = write(o, b.data(), want - w < b.size() ? want - w : b.size());
    if (k <= 0) return 1;
    w += k;
  }
  lseek(o, 0, SEEK_SET);
  while ((n = read(o, b.data(), b.size())) > 0) total += n;
  close(o);
  unlink("floor.tmp");
  std::vector<int> id(rows, 1);
  std::vector<double> a(rows, 1.5), c(rows, 1.25), d(rows), e(rows);
  for (size_t i = 0; i < rows; i++) {
    d[i] = a[i] - c[i];
    e[i] = d[i] / (1 + a[i]);
  }
  double s = 0;
  for (int k = 0; k < 6; k++)
    for (size_t i = 0; i < rows; i++) s += d[i] * e[i] + k;
  printf("%zu %g %d\n", total, s, id[rows / 2]);
}
