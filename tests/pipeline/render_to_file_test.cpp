#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "PipelineTestAccess.h"
#include "TestFolder.h"
#include "platform/Window.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned PassMessage = 0x8123;
constexpr WPARAM PassParam = 0x123456789ull;
const std::string Png = "\x89PNG\r\n\x1a\n", Jpeg = "\xFF\xD8\xFF", Bmp = "BM", Tiff("II*\0", 4);

// Receives pass messages from any thread: which pass runs.
struct MessageLog {
  std::vector<uint64_t> Passes() {
    std::lock_guard<std::mutex> lock(mutex);
    return passes;
  }
  std::mutex mutex;
  std::vector<uint64_t> passes;
  std::atomic<uint64_t> pass{0};
  platform::MessageWindow window{[this](unsigned message, WPARAM wParam, LPARAM lParam) {
    if (message != PassMessage || wParam != PassParam) return;
    {
      std::lock_guard<std::mutex> lock(mutex);
      passes.push_back(uint64_t(lParam));
    }
    pass = uint64_t(lParam);
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

// Stands in for the window's progress display. When marking, a finished
// block's pixels get their output position and pass in the bitmap and the
// running mean, and a beginning block checks that the frame buffer holds
// the marks of the pass before (zero before pass 1). Both calls come with
// the frame buffer locked.
class BlockRecorder : public RENDER_PROGRESS_INTERFACE {
 public:
  BlockRecorder(PipelineTestAccess& frame, MessageLog& log) : frame(frame), log(log) {}

  void DisplayBeginProgress(unsigned long, unsigned int x, unsigned int y, unsigned int frameX,
                            unsigned int frameY, unsigned int width, unsigned int height) override {
    const uint64_t before = log.pass - 1;
    Mark(x, y, frameX, frameY, width, height,
         [&](uint32_t outX, uint32_t outY, SCENE_VERTEX_XYZW* mean, uint8_t* bgra) {
           const float k = before == 0 ? 0.0f : 1.0f;  // nothing is stored before pass 1
           mismatches += mean->x != k * float(outX) || mean->y != k * float(outY) ||
                         mean->z != float(before) || mean->w != k ||
                         ReadPixel(bgra) != (before == 0 ? 0 : ::Mark(outX, outY, before));
         });
  }
  bool DisplayEndProgress(Gdiplus::Bitmap*, unsigned int x, unsigned int y, unsigned int frameX,
                          unsigned int frameY, unsigned int width, unsigned int height) override {
    Mark(x, y, frameX, frameY, width, height,
         [&](uint32_t outX, uint32_t outY, SCENE_VERTEX_XYZW* mean, uint8_t* bgra) {
           *mean = {float(outX), float(outY), float(log.pass), 1};
           for (int b = 0; b < 4; ++b) bgra[b] = uint8_t(::Mark(outX, outY, log.pass) >> (8 * b));
         });
    ++finished;
    return true;
  }
  bool marking = false;
  std::atomic<int> mismatches{0}, finished{0};

 private:
  template <typename Visit>
  void Mark(uint32_t x, uint32_t y, uint32_t frameX, uint32_t frameY, uint32_t width, uint32_t height,
            Visit visit) {
    if (!marking) return;
    platform::PixelSurface surface = frame.FrameBitmap()->Surface();
    for (uint32_t fy = frameY; fy < frameY + height; ++fy)
      for (uint32_t fx = frameX; fx < frameX + width; ++fx)
        visit(x + fx - frameX, y + fy - frameY, frame.FrameHDR() + size_t(fy) * frame.FrameWidth() + fx,
              surface.Row(int(fy)) + 4 * fx);
  }

  PipelineTestAccess& frame;
  MessageLog& log;
};

std::string FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
bool StartsWith(const std::string& bytes, const std::string& magic) {
  return bytes.compare(0, magic.size(), magic) == 0;
}

// A 32-bit picture file's pixels as 0xAARRGGBB, top row first.
std::vector<uint32_t> ReadPicture(const std::string& path) {
  ATL::CImage image;
  std::vector<uint32_t> pixels;
  if (!LoadCImageTextureFromFile(path.c_str(), image) || image.Surface().bitsPerPixel != 32) return pixels;
  const platform::PixelSurface s = image.Surface();
  for (int y = 0; y < s.height; ++y)
    for (int x = 0; x < s.width; ++x) pixels.push_back(ReadPixel(s.Row(y) + 4 * x));
  return pixels;
}
// How many pixels of the `width` x `height` picture file are not marked
// with their own position and `pass`.
int Misplaced(const std::string& path, uint32_t width, uint32_t height, uint64_t pass) {
  const std::vector<uint32_t> picture = ReadPicture(path);
  if (picture.size() != size_t(width) * height) return -1;
  int misplaced = 0;
  for (uint32_t i = 0; i < picture.size(); ++i) misplaced += picture[i] != Mark(i % width, i / width, pass);
  return misplaced;
}

class RenderToFileTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (engine) engine->Release();
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

  using Abort = std::function<bool()>;
  TestFolder files;
  const std::string folder = files.path.string() + "/";
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
  Render(1000, 500, name, 2);
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(Complete());
  EXPECT_EQ(passes.Passes(), (std::vector<uint64_t>{1, 2}));
  // Tiles of the frame's size, 400, 400 and 200 wide by 300, then 200
  // high, each in 32 x 32 blocks: 2 x (10 + 7) x (13 + 13 + 7) blocks.
  EXPECT_EQ(recorder->finished, 2 * 17 * 33);
  // Each tile of pass 2 began from what pass 1 stored for it, and the file
  // holds every pixel where it was traced.
  EXPECT_EQ(recorder->mismatches, 0);
  EXPECT_EQ(Misplaced(name, 1000, 500, 2), 0);
}

TEST_F(RenderToFileTest, ExtensionChoosesTheEncoderAndFailuresSetTheStatus) {
  Start(64, 64);
  // Status 1: the file could not be written; 2: a picture of no size.
  const struct {
    std::string leaf, magic;
    short width;
    int status;
  } cases[] = {{"a.png", Png, 8, 0},   {"b.BMP", Bmp, 8, 0},  {"c.tif", Tiff, 8, 0},
               {"d.TIFF", Tiff, 8, 0}, {"e.jpg", Jpeg, 8, 0}, {"g.png.txt", Jpeg, 8, 0},
               {"", "", 8, 1},         {"none.png", "", 0, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.leaf + " " + std::to_string(c.width));
    Render(c.width, 8, c.leaf.empty() ? "" : folder + c.leaf);
    EXPECT_EQ(Status(), c.status);
    EXPECT_EQ(Complete(), c.status == 0);
    const std::string file = folder + c.leaf;
    EXPECT_TRUE(c.leaf.empty() ||
                (c.magic.empty() ? !fs::exists(file) : StartsWith(FileBytes(file), c.magic)));
  }
}

TEST_F(RenderToFileTest, CubeFacesGoToTheirOwnNames) {
  Start(64, 64);
  const std::string names[6] = {folder + "px.png", folder + "nx.png", folder + "pz.png",
                                folder + "nz.png", folder + "py.png", folder + "ny.png"};
  engine->SetRenderToFileCubeMap(true);
  engine->SetRenderToFileCubeMapNames(names);
  Render(16, 16, folder + "unused.png");
  for (const std::string& name : names) EXPECT_TRUE(StartsWith(FileBytes(name), Png)) << name;
  EXPECT_FALSE(fs::exists(folder + "unused.png"));
}

TEST_F(RenderToFileTest, AbortLeavesThePictureOfTheLastCompletePass) {
  Start(64, 64);
  recorder->marking = true;
  const std::string name = folder + "abort.png";
  // Cut short in pass 2 as soon as one of its blocks is in the frame buffer.
  abortWhen = [&] { return passes.pass >= 2 && recorder->finished > 4; };
  Render(64, 64, name, 5);
  EXPECT_EQ(passes.Passes(), (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(Misplaced(name, 64, 64, 1), 0);  // every pixel as pass 1 left it
  EXPECT_EQ(Status(), 0);
  EXPECT_TRUE(Complete());
}
