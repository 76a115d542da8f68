// Compressed-texture cache files. A damaged file fails its hash long before
// its sizes are read, so the target mends the magic, version, stored time
// and hash of each input: what is left for the fuzzer is every field the
// reader must not trust.
#include <cstring>
#include <vector>

#include "host/BrindlexTexture.h"
#include "FuzzInput.h"

namespace {

constexpr size_t HeaderBytes = 24, HashBytes = 8;

uint64_t Fnv1a(const uint8_t* data, size_t size) {
  uint64_t hash = 0xcbf29ce484222325;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 0x100000001b3;
  return hash;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < HeaderBytes + HashBytes) return 0;
  std::vector<uint8_t> file(data, data + size);
  std::memcpy(file.data(), "BXCT", 4);
  const uint32_t version = 1;
  std::memcpy(file.data() + 4, &version, 4);  // little-endian machines only, as the reader
  const FILETIME time{0x01020304u, 0x05060708u};
  std::memcpy(file.data() + 12, &time.dwLowDateTime, 4);
  std::memcpy(file.data() + 16, &time.dwHighDateTime, 4);
  const uint64_t hash = Fnv1a(file.data(), size - HashBytes);
  std::memcpy(file.data() + size - HashBytes, &hash, HashBytes);

  const std::string& path = fuzz::ScratchFile(".ct1");
  if (!fuzz::WriteScratch(path, file.data(), file.size())) return 0;
  SW_BC_TEXTURE* levels = nullptr;
  unsigned int count = 0;
  if (!ReadCompressedTextureArrayFile(path.c_str(), &time, &levels, &count)) return 0;
  // Every block the reader promises must be there.
  volatile uint8_t sum = 0;
  for (unsigned int i = 0; i < count; ++i) {
    const SW_BC_TEXTURE& level = levels[i];
    const size_t blocks = size_t{level.blocksPerRow} * ((level.height + 3) / 4);
    const uint8_t* bytes = level.bc1Blocks ? &level.bc1Blocks[0][0] : &level.bc2Blocks[0][0];
    const size_t blockBytes = level.bc1Blocks ? 8 : 16;
    for (size_t b = 0; b < blocks * blockBytes; ++b) sum = sum + bytes[b];
  }
  DeleteCompressedTextureArray(levels, count);
  return 0;
}
