// The host's world unit and the units of model files.
//
// The engine's fixed distances are in world units: a kd-tree node of
// surface area 6.0 or less is a leaf, a point light is sampled on a sphere
// of radius 6.0 and a spot light on a disc 6.0 in front of it, rays leave a
// surface 0.001 from it, mist starts 6.0 above the ground at the least and
// photons are gathered within 24.0 by default. With the centimetre as world
// unit these suit buildings and objects: leaves of about a centimetre
// cube, lamps a few centimetres across, an offset of a hundredth of a
// millimetre. In metres a piece of furniture would fall into a handful of
// leaves and be traced almost by brute force (a 1.6 m model renders about
// nine times slower than the same in centimetres; see docs/scene-format.md).
#pragma once

#include <optional>
#include <string>

constexpr double WorldUnitsPerMetre = 100.0;

// Metres in one unit of the named length: "mm", "cm", "m", "km", "in",
// "ft" or "yd"; nothing for any other name.
std::optional<double> MetresPerUnitNamed(const std::string& name);

// The world units of one file unit: the scene file's word first, then
// what the file records, else the metre, which most formats without units
// (OBJ, STL, PLY, 3DS) are written in by the tools that make them.
double WorldUnitsPerFileUnit(std::optional<double> stated, std::optional<double> recorded);
