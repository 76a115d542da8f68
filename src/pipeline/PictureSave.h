// Writing a finished picture to its file: the extension chooses the encoder,
// and the platform writes through a temporary name, so a failed save never
// leaves a broken picture where the last good one stood. Shared by the
// engine's render to file and by hosts that assemble pictures themselves.
#pragma once

namespace Gdiplus {
class Bitmap;
}

// 0 when saved; 1 when the name is missing or can't be converted, or no
// encoder wrote it; 2 when there is no memory for the name.
int SavePicture(const char* name, Gdiplus::Bitmap& bitmap);
