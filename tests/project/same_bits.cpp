// Prints the bits of some motions. Built twice, plainly and with the fused multiply-add that hosts
// may allow their compiler; both have to print the same.
#include <cstdio>

#include "tessarine/animation/Animation.hpp"
#include "tessarine/animation/Simulation.hpp"
#include "tessarine/animation/SpringFunction.hpp"

namespace {

using namespace tessarine;

template <class Motion>
void print(Motion motion) {
  for (int i = 0; i < 100; ++i) {
    motion.advance(0.013);
    const auto value = vectorOf(motion.value());
    const auto velocity = vectorOf(motion.velocity());
    for (std::size_t lane = 0; lane < value.scalarCount; ++lane)
      std::printf("%a %a\n", value[lane], velocity[lane]);
  }
}

}  // namespace

int main() {
#if defined(__FMA__)
  constexpr int skipped = 77;
  if (!__builtin_cpu_supports("fma") || !__builtin_cpu_supports("avx2")) return skipped;
#endif
  print(detail::Simulation<CGPoint>(SpringFunction<CGPoint>({1.1, 7.3}, 120.7, 11.9, 1e-9),
                                    {0.1, 0.7}, {3.3, 0.9}));
  print(detail::Simulation<CGRect>(
      SpringFunction<CGRect>({{1.1, 7.3}, {5.7, -0.3}}, 120.7, 11.9, 1e-9), {},
      {{3.3, 1}, {2, 1}}));
  print(detail::Animation<CGRect>({{0.1, 0.3}, {0.7, 0.9}}, {{1.1, 7.3}, {5.7, -0.3}}, 1.3,
                                  TimingFunction::swiftOut()));
}
