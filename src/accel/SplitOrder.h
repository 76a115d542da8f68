// Which side of a node's plane a ray's origin lies on, decided on whole
// numbers: the way down to the origin's leaf makes this choice at every
// level, and as a double comparison (the plane's float widened in a vector
// register, compared, and the answer moved back to pick the child) each
// level waited several cycles longer for it. The integer form gives the
// same answer.
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

// Planes whose keys decide as the double comparison does under any rounding
// and denormal setting of the processor: neither NaN (no comparison holds)
// nor subnormal (read as 0 where denormals are zero). A tree with any other
// plane is not laid out.
inline bool HasSplitKey(uint32_t bits) {
  const uint32_t magnitude = bits & 0x7fffffffu;
  return magnitude == 0 || (magnitude >= 0x00800000u && magnitude <= 0x7f800000u);
}

// The key of the least float at or above `origin`: for every plane s with
// HasSplitKey, SplitKey(s) >= OriginKey(origin) exactly when
// double(s) >= origin. float(origin) is one of the two floats either side
// of the origin whatever the rounding mode, and the key steps up one where
// it lies below (a subnormal flushed to 0 decides the same, as no plane is
// subnormal). A NaN origin lies above every plane, as no comparison with
// it holds.
inline int32_t OriginKey(double origin) {
  if (std::isnan(origin)) return std::numeric_limits<int32_t>::max();
  const float nearest = float(origin);
  return SplitKey(std::bit_cast<uint32_t>(nearest)) + (double(nearest) < origin);
}
