// The temporary folder and the last-write time of files: what the texture
// cache needs of the file system.
#pragma once

#include "platform/WindowsTypes.h"

// Writes the temporary folder, ending in the path separator, into `buffer`.
// On this platform that is $TMPDIR when it is set and not empty, else /tmp.
// Gives the length written without the terminating zero; when `bufferLength`
// is too small, the length needed with it, and nothing is written; 0 on
// failure.
unsigned long GetTempPathA(unsigned long bufferLength, char* buffer);

// The last-write time of the file at `path`, read from the opened file, as
// CreateFileA (read access, shared read, open existing) with GetFileTime
// and CloseHandle do. False when the file cannot be opened or is not a
// regular file.
bool GetFileLastWriteTime(const char* path, FILETIME* lastWrite);
