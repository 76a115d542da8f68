#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "HDRPictures.h"
#include "PipelineTestAccess.h"
#include "platform/Window.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned PassMessage = 0x8123;
constexpr WPARAM PassParam = 0x123456789ull;
const std::string Png = "\x89PNG\r\n\x1a\n", Jpeg = "\xFF\xD8\xFF", Bmp = "BM", Tiff("II*\0", 4);
using Message = std::tuple<unsigned, WPARAM, LPARAM>;

// Receives messages from any thread. A pass message also tells which pass
// runs, and `beforePass` acts on the host's thread as the pass begins.
struct MessageLog {
  std::vector<uint64_t> Passes() {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<uint64_t> passes;
    for (const auto& [message, wParam, lParam] : messages)
      if (message == PassMessage && wParam == PassParam) passes.push_back(uint64_t(lParam));
    return passes;
  }
  std::mutex mutex;
  std::vector<Message> messages;
  std::atomic<uint64_t> pass{0};
  std::function<void(uint64_t)> beforePass;
  platform::MessageWindow window{[this](unsigned message, WPARAM wParam, LPARAM lParam) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      messages.emplace_back(message, wParam, lParam);
    }
    if (message != PassMessage) return;
    pass = uint64_t(lParam);
    if (beforePass) beforePass(pass);
  }};
};

// Output pixel (x, y) after pass `pass` as 0xAARRGGBB: x in blue and
// green, y and the pass in red and alpha.
uint32_t Mark(uint32_t x, uint32_t y, uint64_t pass) {
  return (200 + (y >> 8) + 4 * uint32_t(pass)) << 24 | (y & 255) << 16 | (x >> 8) << 8 | (x & 255);
}
uint32_t ReadPixel(const uint8_t* bgra) {
  return bgra[0] | bgra[1] << 8 | bgra[2] << 16 | uint32_t(bgra[3]) << 24;
}

struct Block {
  uint32_t x, y, frameX, frameY, width, height;
  uint64_t pass;
};

// Stands in for the window's progress display and notes each block. When
// marking, a finished block's pixels get their output position and pass in
// the bitmap and the running mean, and a beginning block checks that the
// frame buffer holds the marks of the pass before (zero before pass 1).
class BlockRecorder : public RENDER_PROGRESS_INTERFACE {
 public:
  BlockRecorder(PipelineTestAccess& frame, MessageLog& log) : frame(frame), log(log) {}

  void DisplayBeginProgress(unsigned long, unsigned int x, unsigned int y, unsigned int frameX,
                            unsigned int frameY, unsigned int width, unsigned int height) override {
    const Block block = {x, y, frameX, frameY, width, height, log.pass};
    {
      std::lock_guard<std::mutex> lock(mutex);
      blocks.push_back(block);
    }
    const uint64_t before = block.pass - 1;
    if (marking)
      ForEachPixel(block, [&](uint32_t outX, uint32_t outY, SCENE_VERTEX_XYZW* mean, uint8_t* bgra) {
        const SCENE_VERTEX_XYZW m = *mean;
        const bool zero = m.x == 0 && m.y == 0 && m.z == 0 && m.w == 0 && ReadPixel(bgra) == 0;
        const bool marked = m.x == outX && m.y == outY && m.z == before && m.w == 1 &&
                            ReadPixel(bgra) == Mark(outX, outY, before);
        mismatches += before == 0 ? !zero : !marked;
      });
  }
  bool DisplayEndProgress(Gdiplus::Bitmap*, unsigned int x, unsigned int y, unsigned int frameX,
                          unsigned int frameY, unsigned int width, unsigned int height) override {
    const Block block = {x, y, frameX, frameY, width, height, log.pass};
    if (marking)
      ForEachPixel(block, [&](uint32_t outX, uint32_t outY, SCENE_VERTEX_XYZW* mean, uint8_t* bgra) {
        *mean = {float(outX), float(outY), float(block.pass), 1};
        for (int b = 0; b < 4; ++b) bgra[b] = uint8_t(Mark(outX, outY, block.pass) >> (8 * b));
      });
    ++finished;
    return true;
  }
  std::vector<Block> Blocks() {
    std::lock_guard<std::mutex> lock(mutex);
    return blocks;
  }

  bool marking = false;
  std::atomic<int> mismatches{0}, finished{0};

 private:
  // Both callers hold the frame-buffer lock.
  template <typename Visit>
  void ForEachPixel(const Block& b, Visit visit) {
    platform::PixelSurface surface = frame.FrameBitmap()->Surface();
    for (uint32_t fy = b.frameY; fy < b.frameY + b.height; ++fy)
      for (uint32_t fx = b.frameX; fx < b.frameX + b.width; ++fx)
        visit(b.x + fx - b.frameX, b.y + fy - b.frameY,
              frame.FrameHDR() + size_t(fy) * frame.FrameWidth() + fx, surface.Row(int(fy)) + 4 * fx);
  }

  PipelineTestAccess& frame;
  MessageLog& log;
  std::mutex mutex;
  std::vector<Block> blocks;
};

std::string FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
bool StartsWith(const std::string& bytes, const std::string& magic) {
  return bytes.compare(0, magic.size(), magic) == 0;
}

// A picture file's pixels as 0xAARRGGBB, top row first; opaque without alpha.
std::vector<uint32_t> ReadPicture(const std::string& path) {
  ATL::CImage image;
  std::vector<uint32_t> pixels;
  if (!LoadCImageTextureFromFile(path.c_str(), image)) return pixels;
  const platform::PixelSurface s = image.Surface();
  const int bytes = s.bitsPerPixel / 8;
  for (int y = 0; y < s.height; ++y)
    for (const uint8_t* p = s.Row(y); p < s.Row(y) + s.width * bytes; p += bytes)
      pixels.push_back(bytes == 4 ? ReadPixel(p) : 0xFF000000u | p[2] << 16 | p[1] << 8 | p[0]);
  return pixels;
}

class RenderToFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder = ::testing::TempDir() + "render_to_file_" + std::to_string(::getpid()) + "/";
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  void TearDown() override {
    if (engine) engine->Release();
    fs::remove_all(folder);
  }

  // A frame buffer of the given size; pass messages go to `passes`.
  void Start(int frameWidth, int frameHeight) {
    window = std::make_unique<platform::NullWindow>(frameWidth, frameHeight);
    engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    engine->InitializeRendererWindow(window.get(), nullptr);
    frame = std::make_unique<PipelineTestAccess>(engine);
    recorder = std::make_unique<BlockRecorder>(*frame, passes);
    engine->SetRenderProgressInterface(recorder.get());
    engine->SetRenderToFile(true);
    engine->SetRenderToFilePathTracingProgressWindowParams(&passes.window, PassMessage, PassParam);
    view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 60.0f, 10.0f, 0.0f});
    options.SetAntiAliasing(false);
  }
  // Ordinary ray tracing for `pathTracingPasses` 0, else that many passes.
  void Render(short width, short height, const std::string& name, int pathTracingPasses = 0) {
    options.SetPathTracing(pathTracingPasses > 0);
    view.SetRenderOptions(options);
    engine->SetRenderToFileResolution(width, height);
    engine->SetRenderToFileName(name.c_str());
    engine->SetRenderToFileNumberPathTracingPasses(pathTracingPasses);
    engine->SetShouldAbortRenderFunction(
        abortWhen ? +[](void* f) { return (*static_cast<Abort*>(f))(); } : nullptr, &abortWhen);
    engine->RenderFrame(nullptr, &view, &scene, {0, 0, 1, 1}, false);
  }
  int Status() const { return engine->QueryRenderToFile(2); }
  bool Complete() const { return engine->QueryRenderToFile(1) == 1; }
  std::set<std::string> FilesIn(const std::string& path) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
      names.insert(entry.path().filename());
    return names;
  }

  using Abort = std::function<bool()>;
  std::string folder;
  MessageLog passes;
  std::unique_ptr<platform::NullWindow> window;
  RT_RENDER_ENGINE* engine = nullptr;
  std::unique_ptr<PipelineTestAccess> frame;
  std::unique_ptr<BlockRecorder> recorder;
  SCENE_GRAPH scene;
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
  Abort abortWhen;
};

}  // namespace

TEST_F(RenderToFileTest, LargePictureMovesTileByTileThroughTheFrameBuffer) {
  Start(400, 300);
  recorder->marking = true;
  const std::string name = folder + "large.png";
  bool savedAfterPass1 = false;
  passes.beforePass = [&](uint64_t pass) {
    savedAfterPass1 |= pass == 2 && StartsWith(FileBytes(name), Png);
  };
  Render(1000, 500, name, 2);
  EXPECT_TRUE(savedAfterPass1);
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(Complete());
  EXPECT_EQ(passes.Passes(), (std::vector<uint64_t>{1, 2}));

  // Per tile: pass, left, top, width, height and 32 x 32 blocks. Rows of
  // tiles outermost: 400, 400, 200 wide by 300, then by 200.
  using Tile = std::tuple<uint64_t, uint32_t, uint32_t, uint32_t, uint32_t, int>;
  using Span = std::tuple<uint32_t, uint32_t, int>;  // start, length, blocks
  const std::vector<Span> rows = {{0, 300, 10}, {300, 200, 7}};
  const std::vector<Span> columns = {{0, 400, 13}, {400, 400, 13}, {800, 200, 7}};
  std::vector<Tile> tiles, expected;
  for (uint64_t pass : {1, 2})
    for (auto [top, height, down] : rows)
      for (auto [left, width, across] : columns)
        expected.emplace_back(pass, left, top, width, height, down * across);
  for (const Block& b : recorder->Blocks()) {
    const uint32_t left = b.x - b.frameX, top = b.y - b.frameY;
    if (tiles.empty() || std::get<0>(tiles.back()) != b.pass || std::get<1>(tiles.back()) != left ||
        std::get<2>(tiles.back()) != top)
      tiles.emplace_back(b.pass, left, top, 0, 0, 0);
    auto& [pass, tileLeft, tileTop, width, height, blocks] = tiles.back();
    width = std::max(width, b.frameX + b.width);
    height = std::max(height, b.frameY + b.height);
    ++blocks;
  }
  EXPECT_EQ(tiles, expected);
  // Each tile of pass 2 began from what pass 1 stored for it, and the file
  // holds every pixel where it was traced.
  EXPECT_EQ(recorder->mismatches, 0);
  const std::vector<uint32_t> picture = ReadPicture(name);
  ASSERT_EQ(picture.size(), 1000u * 500u);
  int misplaced = 0;
  for (uint32_t i = 0; i < picture.size(); ++i) misplaced += picture[i] != Mark(i % 1000, i / 1000, 2);
  EXPECT_EQ(misplaced, 0);
}

TEST_F(RenderToFileTest, ExtensionChoosesTheEncoderAndBackgroundAlphaReachesThePicture) {
  Start(64, 64);
  const std::pair<std::string, std::string> encoders[] = {
      {"a.png", Png},  {"b.BMP", Bmp},  {"c.tif", Tiff},    {"d.TIFF", Tiff},
      {"e.jpg", Jpeg}, {"f.gif", Jpeg}, {"g.png.txt", Jpeg}};
  for (const auto& [leaf, magic] : encoders) {
    Render(8, 8, folder + leaf);
    EXPECT_TRUE(StartsWith(FileBytes(folder + leaf), magic)) << leaf;
  }
  EXPECT_TRUE(passes.Passes().empty());  // no path tracing, no pass messages

  // The scene is empty: every pixel is background, whose alpha of 0 is kept
  // only with BackgroundAlpha.
  for (bool keepAlpha : {false, true}) {
    engine->SetRenderToFileBackgroundAlpha(keepAlpha);
    Render(8, 8, folder + "alpha.png");
    const std::vector<uint32_t> picture = ReadPicture(folder + "alpha.png");
    ASSERT_EQ(picture.size(), 64u);
    for (uint32_t pixel : picture) ASSERT_EQ(pixel >> 24, keepAlpha ? 0u : 255u) << keepAlpha;
  }
}

TEST_F(RenderToFileTest, CubeFacesGoToTheirOwnNamesAndTheProgressBarCountsBlocks) {
  Start(64, 64);
  MessageLog bar;
  engine->SetRenderToFileCubeMapProgressBar(&bar.window);
  const std::string names[6] = {folder + "px.png", folder + "nx.png", folder + "pz.png",
                                folder + "nz.png", folder + "py.png", folder + "ny.png"};
  engine->SetRenderToFileCubeMap(true);
  engine->SetRenderToFileCubeMapNames(names);
  Render(16, 16, folder + "unused.png");
  // One block a face, each face its own picture.
  for (const std::string& name : names) EXPECT_TRUE(StartsWith(FileBytes(name), Png)) << name;
  EXPECT_FALSE(fs::exists(folder + "unused.png"));
  const Message step = {PBM_SETSTEP, 1, 0}, position = {PBM_SETPOS, 0, 0}, stepIt = {PBM_STEPIT, 0, 0};
  std::vector<Message> expected = {{PBM_SETRANGE, 0, 6 << 16}, step, position};
  expected.insert(expected.end(), 6, stepIt);
  EXPECT_EQ(bar.messages, expected);

  // One face of 130 x 70: a range of 4 x 2 whole blocks, and a step for each
  // block of the 64 x 64 tiles: 4 + 4 + 2, then 2 + 2 + 1.
  engine->SetRenderToFileCubeMap(false);
  bar.messages.clear();
  Render(130, 70, folder + "flat.png");
  expected = {{PBM_SETRANGE, 0, 8 << 16}, step, position};
  expected.insert(expected.end(), 15, stepIt);
  EXPECT_EQ(bar.messages, expected);
}

TEST_F(RenderToFileTest, FailuresSetTheStatusAndLaterPassesStillSave) {
  Start(64, 64);
  // The folder appears only as pass 2 begins: pass 1 fails, pass 2 saves,
  // and the failure stays reported.
  const std::string late = folder + "late/";
  passes.beforePass = [&](uint64_t pass) {
    if (pass == 2) fs::create_directories(late);
  };
  Render(8, 8, late + "out.png", 3);
  passes.beforePass = nullptr;
  EXPECT_EQ(passes.Passes(), (std::vector<uint64_t>{1, 2, 3}));
  EXPECT_EQ(Status(), 1);
  EXPECT_FALSE(Complete());
  EXPECT_TRUE(StartsWith(FileBytes(late + "out.png"), Png));
  for (const std::string& name : {std::string(), folder + "bad\xFF.png"}) {
    Render(8, 8, name);
    EXPECT_EQ(Status(), 1);
    EXPECT_FALSE(Complete());
  }

  // A picture that can't be made: status 2 and nothing traced.
  Render(8, 8, folder + "good.png");
  EXPECT_TRUE(Complete());
  const size_t blocks = recorder->Blocks().size();
  for (short width : {0, -8}) {
    Render(width, 8, folder + "none.png");
    EXPECT_EQ(Status(), 2);
    EXPECT_FALSE(Complete());
  }
  EXPECT_EQ(recorder->Blocks().size(), blocks);
  EXPECT_FALSE(fs::exists(folder + "none.png"));
}

TEST_F(RenderToFileTest, AbortLeavesThePictureOfTheLastCompletePass) {
  Start(64, 64);
  recorder->marking = true;
  const std::string name = folder + "abort.png";
  std::string afterPass1;
  passes.beforePass = [&](uint64_t pass) {
    if (pass == 2) afterPass1 = FileBytes(name);
  };
  // Cut short in pass 2 as soon as one of its blocks is in the frame buffer.
  abortWhen = [&] { return passes.pass >= 2 && recorder->finished > 4; };
  Render(64, 64, name, 5);
  EXPECT_EQ(passes.Passes(), (std::vector<uint64_t>{1, 2}));
  EXPECT_GT(recorder->finished, 4);
  EXPECT_TRUE(StartsWith(afterPass1, Png));
  EXPECT_EQ(FileBytes(name), afterPass1);
  EXPECT_EQ(ReadPicture(name).back(), Mark(63, 63, 1));
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(Complete());
}

namespace {
// How many pixels differ from the running mean the marking recorder left
// after `pass`: (x, y, pass) in red, green, blue; all are whole numbers
// that half floats hold exactly, most of them far above 1.
int MisplacedMeans(const HDRPicture& picture, uint64_t pass) {
  int misplaced = 0;
  for (int i = 0; i < int(picture.pixels.size()); ++i) {
    const Imf::Rgba p = picture.pixels[size_t(i)];
    misplaced += float(p.r) != float(i % picture.width) || float(p.g) != float(i / picture.width) ||
                 float(p.b) != float(pass) || float(p.a) != 1.0f;
  }
  return misplaced;
}
}  // namespace

TEST_F(RenderToFileTest, HDRPicturesHoldTheRunningMeanBeforeTheToneMap) {
  Start(40, 30);
  recorder->marking = true;
  // An ".exr" name, in any case, takes the running mean of every tile.
  const std::string exr = folder + "mean.EXR";
  Render(100, 60, exr, 2);
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(Complete());
  HDRPicture picture = ReadHDRPicture(exr);
  ASSERT_EQ(picture.width, 100);
  ASSERT_EQ(picture.height, 60);
  EXPECT_EQ(MisplacedMeans(picture, 2), 0);

  // The second name gives an HDR picture beside the 8-bit one, after each
  // pass, with checkpoints as the picture has them.
  const std::string png = folder + "view.png", beside = folder + "view.exr";
  engine->SetRenderToFileHDRName(beside.c_str());
  engine->SetRenderToFileSavePathTracingCheckpoints(true);
  bool besideAfterPass1 = false;
  passes.beforePass = [&](uint64_t pass) {
    besideAfterPass1 |= pass == 2 && MisplacedMeans(ReadHDRPicture(beside), 1) == 0;
  };
  Render(64, 48, png, 25);
  passes.beforePass = nullptr;
  EXPECT_TRUE(besideAfterPass1);
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(StartsWith(FileBytes(png), Png));
  picture = ReadHDRPicture(beside);
  ASSERT_EQ(picture.width, 64);
  EXPECT_EQ(MisplacedMeans(picture, 25), 0);
  EXPECT_EQ(FilesIn(folder + "CheckPoint"), (std::set<std::string>{"view_25.exr", "view_25.png"}));
  EXPECT_EQ(FilesIn(folder), (std::set<std::string>{"CheckPoint", "mean.EXR", "view.exr", "view.png"}));
}
