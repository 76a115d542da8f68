// Tolerances that the host libraries, the engine and the programs share, so
// that "counts as zero" and "just off a surface" mean the same everywhere.
// Angles use std::numbers::pi.
#pragma once

// Below this a length, a determinant, a cosine or a channel counts as zero:
// a ray parallel to a plane, an axis with no direction, a photon with no
// energy.
inline constexpr double NearZero = 1e-7;

// How far, in world units, a ray that continues from a surface (a shadow,
// occlusion, transparency, mirror, photon or path ray) starts beyond it, so
// that it does not meet the surface it leaves.
inline constexpr double SurfaceOffset = 0.001;
