// Making sure, before anything is rendered, that the picture files can be
// written where the user asked, and that nothing but an ordinary file is
// ever replaced by them.
#pragma once

#include <string>

// Checks the output name `path`: a new name or a regular file that may be
// written, in a folder that takes new files. A symbolic link is followed,
// and `path` becomes the file it points to, so the link stays as it is.
// Clears away the temporary files a killed earlier run left for this name.
// False with a one-line reason.
bool PrepareOutput(std::string& path, std::string& error);
