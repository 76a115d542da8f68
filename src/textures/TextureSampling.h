// Reading texels of a pyramid, uncompressed or block-compressed alike.
// Pure reads: all workers sample at once without locks.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"
#include "textures/SWTexture.h"

// Texel (x, y) of `level`, wrapped into the level: red, green, blue and
// alpha from 0 to 1. Leaves `color` alone for a level the record lacks.
void FetchTextureTexel(const SWTexture& texture, unsigned int level, int x, int y, SCENE_VERTEX_XYZW& color);

// Bilinear sample of one level at (u, v); a level past the last is the
// last.
void SampleTextureLevel(const SWTexture& texture, unsigned int level, float u, float v,
                        SCENE_VERTEX_XYZW& color);

// Texel (bx, by), each 0 to 3, of a BC1 block of 8 bytes and of a BC2 block
// of 16 bytes (SW_BC_TEXTURE tells their layout).
void DecodeBC1Texel(const uint8_t* block, int bx, int by, SCENE_VERTEX_XYZW& color);
void DecodeBC2Texel(const uint8_t* block, int bx, int by, SCENE_VERTEX_XYZW& color);
