// make_redshifts: writes the example table, redshifts.csv, on standard output.
//
// The objects are simulated: a redshift distribution like a deep survey's, estimates that scatter
// by 0.03 (1 + z) about a small bias, and one object in twenty-five whose estimate is far off.
// `odds` is the confidence of the estimator, also made up. The random numbers are made by hand: the
// standard library's distributions give different numbers on different systems.

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

// The upper half of Knuth's 64-bit linear congruential generator.
class Random {
 public:
  // Between 0 and 1, neither included.
  double uniform() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return (static_cast<double>(state_ >> 32) + 0.5) / 4294967296.0;
  }

  // About 0 with a standard deviation of 1: twelve uniform numbers are as good as normal here.
  double normal() {
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += uniform();
    return sum;
  }

 private:
  std::uint64_t state_ = 20261121;
};

}  // namespace

int main() {
  constexpr int kObjects = 2000;
  Random random;
  for (int id = 1; id <= kObjects; ++id) {
    const double zspec = -0.35 * std::log(random.uniform() * random.uniform());
    double zphot = zspec - 0.004 + 0.03 * (1 + zspec) * random.normal();
    double odds = 0.75 + 0.25 * random.uniform();
    if (random.uniform() < 0.04) {
      zphot = 3.5 * random.uniform();
      odds = 0.2 + 0.6 * random.uniform();
    }
    if (zphot < 0) zphot = 0.001;
    std::printf("%d,%.5f,%.5f,%.3f\n", id, zspec, zphot, odds);
  }
}
