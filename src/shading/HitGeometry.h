// The few facts every reader of a ray hit needs: where it lies, which way
// the triangle faces, its texture coordinates and how fast they change from
// pixel to pixel. All of them are free of state and safe from any thread.
//
// Barycentric weights follow the hit record: `weightB` weighs vertex 1,
// `weightC` vertex 2 and `hitWeight` = 1 - weightB - weightC vertex 0.
#pragma once

#include "host/SceneRecords.h"

// origin + direction * t.
SCENE_VERTEX_XYZ_64 GetPointOnRay(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                                  double t);

// Unit normal of the triangle's plane. The winding sets its sign; nothing
// turns it toward the viewer.
SCENE_VERTEX_XYZ_64 CalculateTriangleNormal(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1,
                                            const SCENE_VERTEX& v2);

// The texture coordinates at the hit; a vertex u or v that is not a number
// counts as 0.
void InterpolateTextureCoordinates(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                                   double weightB, double weightC, double hitWeight, double& textureU,
                                   double& textureV);

// How the hit point and its texture coordinates move from this pixel to the
// next one in x and in y, from the rays through those pixels (`xOrigin`,
// `xDirection`, `yOrigin`, `yDirection`) met with the triangle's plane.
// `normal` is the triangle's unit normal and `hitPoint` the main ray's hit.
void CalculateRayDifferentials(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                               const SCENE_VERTEX_XYZ_64& normal, const SCENE_VERTEX_XYZ_64& xOrigin,
                               const SCENE_VERTEX_XYZ_64& xDirection, const SCENE_VERTEX_XYZ_64& yOrigin,
                               const SCENE_VERTEX_XYZ_64& yDirection, const SCENE_VERTEX_XYZ_64& hitPoint,
                               SCENE_VERTEX_XYZ_64& dPdx, SCENE_VERTEX_XYZ_64& dPdy, double& dudx,
                               double& dudy, double& dvdx, double& dvdy);

// Solves (a b / c d) (x0 x1) = (e f), with `matrix` = {a, b, c, d} row by
// row and `rightSide` = {e, f}. False, with x0 and x1 untouched, when |det|
// as a 32-bit float is below 1e-5.
bool SolveLinearSystem2x2(const double matrix[4], const double rightSide[2], double& x0, double& x1);
