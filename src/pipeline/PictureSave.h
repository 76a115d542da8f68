// Writing a finished picture to its file, and its checkpoint copies. The
// extension chooses the encoder, and the platform writes through a
// temporary name, so a failed save never leaves a broken picture where the
// last good one stood. Shared by the engine's render to file and by hosts
// that assemble pictures themselves.
#pragma once

#include <cstdint>

namespace Gdiplus {
class Bitmap;
}

// 0 when saved; 1 when the name is missing or can't be converted, or no
// encoder wrote it; 2 when there is no memory for the name.
int SavePicture(const char* name, Gdiplus::Bitmap& bitmap);

// A path-traced picture is copied every this many passes when checkpoints
// are asked for.
constexpr uint64_t CheckpointInterval = 25;

// Copies the picture file `name` after pass `pass` into the "CheckPoint"
// folder beside it, as <leaf>_<pass><extension>; an older copy of the same
// pass is overwritten. A name without a folder gets no checkpoint.
void SaveCheckpoint(const char* name, uint64_t pass);
