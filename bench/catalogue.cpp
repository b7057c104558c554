// catalogue ROWS COLUMNS SEED: writes a random table of redshifts to standard output.
// 2 columns: zspec,zphot. 12 columns: id,ra,dec,u,g,r,i,z,y,zspec,zphot,odds. No header line.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
int main(int, char **argv) {
  long rows = atol(argv[1]);
  int cols = atoi(argv[2]);
  std::mt19937_64 g(atol(argv[3]));
  std::gamma_distribution<double> z(2.0, 0.35);
  std::normal_distribution<double> n(0, 1);
  std::uniform_real_distribution<double> u(0, 1);
  static char buf[1 << 20];
  setvbuf(stdout, buf, _IOFBF, sizeof buf);
  for (long i = 0; i < rows; i++) {
    double s = z(g), p = s + 0.03 * (1 + s) * n(g) + 0.004;
    if (u(g) < 0.04) p = 5 * u(g);
    if (p < 0) p = 0.001;
    if (cols == 2)
      printf("%.8f,%.8f\n", s, p);
    else
      printf("%ld,%.6f,%.6f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.8f,%.8f,%.3f\n", 1000000000 + i,
             360 * u(g), 180 * u(g) - 90, 24 + n(g), 23 + n(g), 22 + n(g), 21.5 + n(g), 21 + n(g),
             20.8 + n(g), s, p, u(g));
  }
}
