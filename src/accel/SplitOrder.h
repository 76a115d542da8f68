// Which side of a node's plane a ray's origin lies on, decided on whole
// numbers: the way down to the origin's leaf makes this choice at every
// level, and the double comparison (the float plane widened, compared,
// and the answer moved back from a vector register) was most of the time
// of each level there. The integer form gives the same answer.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

// A float's bits as an integer in the order of the values, -0 and +0 as one.
inline int32_t SplitKey(uint32_t bits) {
  const int32_t value = int32_t(bits);
  const int32_t sign = value >> 31;
  return ((value & 0x7fffffff) ^ sign) - sign;
}

// Planes whose keys order as their values do under any rounding and
// denormal setting of the processor: neither NaN nor subnormal. A tree with
// any other plane is not laid out.
inline bool HasSplitKey(uint32_t bits) {
  const uint32_t magnitude = bits & 0x7fffffffu;
  return magnitude == 0 || (magnitude >= 0x00800000u && magnitude <= 0x7f800000u);
}

// The key of the least float at or above `origin`: for every plane s with
// HasSplitKey, SplitKey(s) >= OriginKey(origin) exactly when
// double(s) >= origin. The float nearest the origin is one of its two
// neighbours whatever the rounding; one step up where it lies below. A NaN
// origin lies above every plane, as no comparison with it holds.
inline int32_t OriginKey(double origin) {
  if (std::isnan(origin)) return std::numeric_limits<int32_t>::max();
  const float nearest = float(origin);
  return SplitKey(std::bit_cast<uint32_t>(nearest)) + (double(nearest) < origin);
}
