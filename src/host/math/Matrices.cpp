// 4 x 4 matrices of both precisions: identity, inverse, product, narrowing.
#include "host/BrindlexViewMath.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace {

// A matrix counts as singular when its determinant is below this fraction of
// the product of its column lengths, the largest the determinant of such
// columns can be. The ratio does not change when the matrix is scaled, nor
// with the size of a translation, so a camera far from the origin is judged
// like one near it.
constexpr double SingularRatio = 1e-12;

template <typename M>
void Identity(M* out) {
  for (int i = 0; i < 16; ++i) out->m[i] = (i % 5 == 0) ? 1 : 0;
}

// Cofactor expansion in double for both precisions: the float form then
// loses nothing but the final rounding.
template <typename M>
bool Invert(const M& in, M* out) {
  double a[16];
  double columnLengths = 1.0;
  for (int column = 0; column < 4; ++column) {
    double squares = 0.0;
    for (int row = 0; row < 4; ++row) {
      a[column * 4 + row] = in.m[column * 4 + row];
      squares += a[column * 4 + row] * a[column * 4 + row];
    }
    columnLengths *= std::sqrt(squares);
  }
  // The inverse of the transpose is the transpose of the inverse, so the
  // expansion can read the array as rows and write it the same way. The
  // s terms are the 2 x 2 minors of rows 0-1, the c terms those of rows 2-3.
  auto e = [&a](int i, int j) { return a[i * 4 + j]; };
  const double s0 = e(0, 0) * e(1, 1) - e(1, 0) * e(0, 1), s1 = e(0, 0) * e(1, 2) - e(1, 0) * e(0, 2);
  const double s2 = e(0, 0) * e(1, 3) - e(1, 0) * e(0, 3), s3 = e(0, 1) * e(1, 2) - e(1, 1) * e(0, 2);
  const double s4 = e(0, 1) * e(1, 3) - e(1, 1) * e(0, 3), s5 = e(0, 2) * e(1, 3) - e(1, 2) * e(0, 3);
  const double c5 = e(2, 2) * e(3, 3) - e(3, 2) * e(2, 3), c4 = e(2, 1) * e(3, 3) - e(3, 1) * e(2, 3);
  const double c3 = e(2, 1) * e(3, 2) - e(3, 1) * e(2, 2), c2 = e(2, 0) * e(3, 3) - e(3, 0) * e(2, 3);
  const double c1 = e(2, 0) * e(3, 2) - e(3, 0) * e(2, 2), c0 = e(2, 0) * e(3, 1) - e(3, 0) * e(2, 1);
  const double det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
  if (!(std::fabs(det) > SingularRatio * columnLengths)) return false;  // also catches not-a-number

  const double r = 1.0 / det;
  double inv[16];
  inv[0] = (e(1, 1) * c5 - e(1, 2) * c4 + e(1, 3) * c3) * r;
  inv[1] = (-e(0, 1) * c5 + e(0, 2) * c4 - e(0, 3) * c3) * r;
  inv[2] = (e(3, 1) * s5 - e(3, 2) * s4 + e(3, 3) * s3) * r;
  inv[3] = (-e(2, 1) * s5 + e(2, 2) * s4 - e(2, 3) * s3) * r;
  inv[4] = (-e(1, 0) * c5 + e(1, 2) * c2 - e(1, 3) * c1) * r;
  inv[5] = (e(0, 0) * c5 - e(0, 2) * c2 + e(0, 3) * c1) * r;
  inv[6] = (-e(3, 0) * s5 + e(3, 2) * s2 - e(3, 3) * s1) * r;
  inv[7] = (e(2, 0) * s5 - e(2, 2) * s2 + e(2, 3) * s1) * r;
  inv[8] = (e(1, 0) * c4 - e(1, 1) * c2 + e(1, 3) * c0) * r;
  inv[9] = (-e(0, 0) * c4 + e(0, 1) * c2 - e(0, 3) * c0) * r;
  inv[10] = (e(3, 0) * s4 - e(3, 1) * s2 + e(3, 3) * s0) * r;
  inv[11] = (-e(2, 0) * s4 + e(2, 1) * s2 - e(2, 3) * s0) * r;
  inv[12] = (-e(1, 0) * c3 + e(1, 1) * c1 - e(1, 2) * c0) * r;
  inv[13] = (e(0, 0) * c3 - e(0, 1) * c1 + e(0, 2) * c0) * r;
  inv[14] = (-e(3, 0) * s3 + e(3, 1) * s1 - e(3, 2) * s0) * r;
  inv[15] = (e(2, 0) * s3 - e(2, 1) * s1 + e(2, 2) * s0) * r;
  for (int i = 0; i < 16; ++i) out->m[i] = static_cast<std::remove_reference_t<decltype(out->m[i])>>(inv[i]);
  return true;
}

template <typename M>
void Multiply(const M& a, M* b) {
  // Into a temporary: `b` is also an operand, and `a` may be `b`.
  M product;
  for (int column = 0; column < 4; ++column) {
    for (int row = 0; row < 4; ++row) {
      auto sum = a.m[row] * b->m[column * 4];
      for (int k = 1; k < 4; ++k) sum += a.m[k * 4 + row] * b->m[column * 4 + k];
      product.m[column * 4 + row] = sum;
    }
  }
  *b = product;
}

}  // namespace

void GetIdentityMatrix(SCENE_MATRIX* out) {
  if (out) Identity(out);
}
void GetIdentityMatrix(SCENE_MATRIX_64* out) {
  if (out) Identity(out);
}

bool GetInverseMatrix(const SCENE_MATRIX* in, SCENE_MATRIX* out) {
  return in && out && Invert(*in, out);
}
bool GetInverseMatrix(const SCENE_MATRIX_64* in, SCENE_MATRIX_64* out) {
  return in && out && Invert(*in, out);
}

void MatrixMultiply(const SCENE_MATRIX* a, SCENE_MATRIX* b) {
  if (a && b) Multiply(*a, b);
}
void MatrixMultiply(const SCENE_MATRIX_64* a, SCENE_MATRIX_64* b) {
  if (a && b) Multiply(*a, b);
}

void ConvertSceneMatrix64ToSceneMatrix(const SCENE_MATRIX_64* in, SCENE_MATRIX* out) {
  if (!in || !out) return;
  for (int i = 0; i < 16; ++i) out->m[i] = static_cast<float>(in->m[i]);
}

void CalculateTranslationMatrix(const SCENE_VERTEX_XYZ_64* translation, SCENE_MATRIX_64* out) {
  if (!translation || !out) return;
  // Read before writing: `translation` may lie inside `out`.
  const SCENE_VERTEX_XYZ_64 t = *translation;
  Identity(out);
  out->m[12] = t.x;
  out->m[13] = t.y;
  out->m[14] = t.z;
}
