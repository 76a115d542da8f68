// The way down to a ray's origin compares planes with the origin as
// integers; the answer must be the double comparison's for every plane the
// walk layout keeps, under every rounding and denormal setting.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <limits>

#include "accel/SplitOrder.h"

namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();

// Origins at, between and beyond floats, as doubles.
const double Origins[] = {0.0,
                          -0.0,
                          1.0,
                          std::nextafter(1.0, 2.0),
                          std::nextafter(1.0, 0.0),
                          0.1,
                          -0.1,
                          double(0.1f),
                          -double(0.1f),
                          1e-45,
                          -1e-45,
                          1e-300,
                          -1e-300,
                          1e-310,
                          -1e-310,
                          double(FLT_MIN),
                          std::nextafter(double(FLT_MIN), 0.0),
                          double(FLT_MAX),
                          std::nextafter(double(FLT_MAX), Infinity),
                          -std::nextafter(double(FLT_MAX), Infinity),
                          1e39,
                          -1e39,
                          Infinity,
                          -Infinity,
                          std::numeric_limits<double>::quiet_NaN(),
                          -std::numeric_limits<double>::quiet_NaN(),
                          2.5,
                          -2.5};

const float Planes[] = {0.0f,
                        -0.0f,
                        1.0f,
                        std::nextafter(1.0f, 2.0f),
                        std::nextafter(1.0f, 0.0f),
                        0.1f,
                        -0.1f,
                        FLT_MIN,
                        -FLT_MIN,
                        FLT_MAX,
                        -FLT_MAX,
                        std::numeric_limits<float>::infinity(),
                        -std::numeric_limits<float>::infinity(),
                        2.5f,
                        -2.5f};

// Gives the processor its rounding and denormal settings back however the
// test leaves its scope, a failed ASSERT included, so that no later test in
// this binary runs in a mode it did not ask for.
class ModeRestorer {
 public:
  ModeRestorer() : saved(_mm_getcsr()) {}
  ~ModeRestorer() { _mm_setcsr(saved); }
  ModeRestorer(const ModeRestorer&) = delete;
  ModeRestorer& operator=(const ModeRestorer&) = delete;
  const unsigned int saved;
};

}  // namespace

TEST(SplitOrder, KeysCompareAsTheDoublesUnderEveryProcessorMode) {
  {
    const ModeRestorer mode;
    const unsigned int roundings[] = {_MM_ROUND_NEAREST, _MM_ROUND_DOWN, _MM_ROUND_UP, _MM_ROUND_TOWARD_ZERO};
    for (unsigned int rounding : roundings)
      for (unsigned int zeros : {0u, unsigned(_MM_FLUSH_ZERO_ON | 0x0040 /* denormals are zero */)}) {
        _mm_setcsr((mode.saved & ~(_MM_ROUND_MASK | _MM_FLUSH_ZERO_MASK | 0x0040u)) | rounding | zeros);
        for (double origin : Origins)
          for (float plane : Planes) {
            const uint32_t bits = std::bit_cast<uint32_t>(plane);
            ASSERT_TRUE(HasSplitKey(bits)) << plane;
            const volatile double widened = plane;
            const bool expected = widened >= origin;
            const bool got = SplitKey(bits) >= OriginKey(origin);
            EXPECT_EQ(got, expected) << "plane " << plane << " origin " << origin << " mode " << std::hex
                                     << (rounding | zeros);
          }
      }
  }
  // NaN and subnormal planes have no key.
  for (float plane : {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                      std::numeric_limits<float>::denorm_min(), -FLT_MIN / 2})
    EXPECT_FALSE(HasSplitKey(std::bit_cast<uint32_t>(plane))) << plane;
}
