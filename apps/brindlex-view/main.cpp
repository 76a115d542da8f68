// brindlex-view: shows a model, a scene file or the built-in demo scene in
// a window, rendered block by block, and moves the camera with the mouse.
// The window and SDL live on this thread; the engine renders on the render
// loop's thread. See --help.
#include <SDL.h>

#include <chrono>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "RenderLoop.h"
#include "SceneAssembly.h"
#include "platform/SdlWindow.h"
#include "ViewOptions.h"
#include "ViewStatus.h"
#include "host/brindlexutil.h"

namespace {

enum ExitCodes : int { Done = 0, NotWritten = 1, BadInput = 2 };

// Degrees of orbit for a pixel of mouse movement, and the zoom of one
// click of the wheel.
constexpr double DegreesPerPixel = 0.4;
constexpr double ZoomPerClick = 0.85;

int Fail(const std::string& message, int code) {
  std::cerr << "brindlex-view: " << message << '\n';
  return code;
}

double Now() {
  static const auto start = std::chrono::steady_clock::now();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool SavePicture(const std::filesystem::path& path, const ATL::CImage& image) {
  const int type = GetTextureFileType(path.string().c_str());
  const auto format =
      type == TextureFileTypeAny ? PictureFileFormat::Png : static_cast<PictureFileFormat>(type);
  return SavePictureFile(path.string().c_str(), image.Surface(), format);
}

// The user's side of the program: input, the title bar, saving, and when
// to leave.
class Viewer {
 public:
  Viewer(const ViewSettings& settings, platform::SdlWindow& window, RenderLoop& loop, RenderModes modes)
      : settings(settings), window(window), loop(loop), modes(modes) {}

  // Runs until the window closes; the exit code.
  int Run() {
    window.SetTitle(Title());
    while (!quit) {
      ViewChange change;
      bool changed = false;
      SDL_Event event;
      // Waiting a little lets blocks that the workers finish reach the
      // screen about 60 times a second.
      if (SDL_WaitEventTimeout(&event, 16)) do
          changed |= Handle(event, change);
        while (SDL_PollEvent(&event));
      if (changed) Ask(change, Now());
      ReadMessages();
      window.Present(false);
      const std::string title = Title();
      if (title != shownTitle) window.SetTitle(shownTitle = title);
    }
    loop.Stop();
    if (!settings.screenshot.empty()) Screenshot();
    return code;
  }

 private:
  std::string Title() const { return "brindlex-view | " + status.Title(modes); }

  bool Handle(const SDL_Event& event, ViewChange& change) {
    switch (event.type) {
      case SDL_QUIT:  // the window closed, or Ctrl-C
        quit = true;
        return false;
      case SDL_WINDOWEVENT:
        if (event.window.event == SDL_WINDOWEVENT_EXPOSED) window.Present(true);
        if (event.window.event != SDL_WINDOWEVENT_SIZE_CHANGED) return false;
        change.resized = true;
        change.width = event.window.data1;
        change.height = event.window.data2;
        cameraMoved = true;
        return true;
      case SDL_MOUSEMOTION: {
        const bool left = event.motion.state & SDL_BUTTON_LMASK;
        const bool pan = event.motion.state & (SDL_BUTTON_RMASK | SDL_BUTTON_MMASK) ||
                         (left && (SDL_GetModState() & KMOD_SHIFT));
        if (pan) {
          change.panRight += event.motion.xrel;
          change.panDown += event.motion.yrel;
        } else if (left) {
          // The model turns with the mouse: dragging right turns the eye
          // the other way round, dragging down lifts it.
          change.azimuth -= event.motion.xrel * DegreesPerPixel;
          change.elevation += event.motion.yrel * DegreesPerPixel;
        } else {
          return false;
        }
        cameraMoved = true;
        return true;
      }
      case SDL_MOUSEWHEEL:
        change.zoom *= std::pow(ZoomPerClick, event.wheel.y);
        cameraMoved = true;
        return event.wheel.y != 0;
      case SDL_KEYDOWN:
        return Key(event.key.keysym.sym, change);
      default:
        return false;
    }
  }

  bool Key(SDL_Keycode key, ViewChange& change) {
    switch (key) {
      case SDLK_q:
      case SDLK_ESCAPE:
        quit = true;
        return false;
      case SDLK_s:
        Save();
        return false;
      case SDLK_f:
      case SDLK_HOME:
        change.fit = true;
        cameraMoved = true;
        return true;
      case SDLK_r:
        modes.pathTracing = false;
        break;
      case SDLK_t:
        modes.pathTracing = true;
        break;
      case SDLK_p:
        modes.photons = !modes.photons;
        break;
      case SDLK_h:
        modes.softShadows = !modes.softShadows;
        break;
      default:
        return false;
    }
    change.modesChanged = true;
    change.modes = modes;
    return true;
  }

  void Ask(const ViewChange& change, double now) {
    const uint64_t request = loop.Request(change);
    if (cameraMoved) askedAt[request] = now;
    cameraMoved = false;
  }

  void ReadMessages() {
    for (const platform::PostedMessage& message : window.TakeMessages()) {
      const ViewStatus::Event event = status.Receive(message, Now());
      const bool passesDone = modes.pathTracing && event == ViewStatus::Event::PassComplete;
      if (event == ViewStatus::Event::FrameComplete || (passesDone && status.CompletePasses() == 1))
        NoteFirstPicture();
      if (passesDone)
        debugOS << "view: path-tracing pass " << status.CompletePasses() << ": "
                << status.PassSeconds() * 1000.0 << " ms" << std::endl;
      const int passesWanted = settings.render.passes.value_or(1);
      if (settings.exitAfterFrame &&
          (modes.pathTracing ? passesDone && status.CompletePasses() >= passesWanted
                             : event == ViewStatus::Event::FrameComplete))
        quit = true;
    }
  }

  // The time from the mouse to the first complete picture of a camera that
  // it moved, for the log.
  void NoteFirstPicture() {
    const auto asked = askedAt.find(status.Request());
    if (asked != askedAt.end())
      debugOS << "view: input to complete picture: " << (Now() - asked->second) * 1000.0 << " ms"
              << std::endl;
    askedAt.erase(askedAt.begin(), askedAt.upper_bound(status.Request()));
    if (status.FrameComplete())
      debugOS << "view: frame complete: " << status.FrameSeconds() * 1000.0 << " ms" << std::endl;
  }

  // What the window shows at the end, for --screenshot.
  void Screenshot() {
    window.Present(true);
    ATL::CImage shown;
    if (!window.ReadShown(shown) || !SavePicture(settings.screenshot, shown)) {
      std::cerr << "brindlex-view: " << settings.screenshot << ": the screenshot could not be written\n";
      code = NotWritten;
    }
  }

  void Save() {
    ATL::CImage picture;
    std::filesystem::path name = NextPictureName(settings.render);
    bool saved = loop.CopyPicture(picture) && SavePicture(name, picture);
    // A model in a folder of the system can't have pictures beside it.
    if (!saved && !picture.IsNull() && name.has_parent_path()) {
      name = name.filename();
      saved = SavePicture(name, picture);
    }
    std::cout << "brindlex-view: " << (saved ? "saved " : "could not save ") << name.string() << std::endl;
  }

  const ViewSettings& settings;
  platform::SdlWindow& window;
  RenderLoop& loop;
  RenderModes modes;
  ViewStatus status;
  std::map<uint64_t, double> askedAt;
  std::string shownTitle;
  bool cameraMoved = false, quit = false;
  int code = Done;
};

int Run(const std::vector<std::string>& arguments) {
  ViewSettings settings;
  std::string error;
  if (!ParseViewOptions(arguments, settings, error)) return Fail(error + " (see --help)", BadInput);
  if (settings.render.help) return std::cout << ViewUsageText(), Done;
  if (settings.render.version) return std::cout << "brindlex-view " BRINDLEX_VERSION "\n", Done;
  if (settings.log == "-")
    debugOS.attach(&std::cerr);
  else if (!settings.log.empty() && !debugOS.open(settings.log.c_str()))
    return Fail(settings.log + ": the log could not be opened", BadInput);

  const RenderJob job = MakeJob(settings.render);
  std::unique_ptr<platform::SdlWindow> window =
      platform::SdlWindow::Open("brindlex-view | loading", job.width, job.height, error);
  if (!window) return Fail(error, BadInput);
  RECT client;
  window->GetClientRect(client);
  HostScene host;
  if (!AssembleScene(settings.render, static_cast<double>(client.right) / std::max(client.bottom, 1), host,
                     error))
    return Fail(error, BadInput);
  const MODE_RENDER_OPTIONS& options = host.Options();
  const RenderModes modes{options.DoPathTracing(), options.DoPhotonMapping(),
                          options.DoRayTracedSoftShadows()};

  RenderLoop loop(host, *window);
  if (!loop.Start(host.TextureDirectory().string()))
    return Fail("not enough memory to start the render engine", 1);
  const int code = Viewer(settings, *window, loop, modes).Run();
  debugOS.attach(nullptr);
  debugOS.close();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int code = Run(std::vector<std::string>(argv + 1, argv + argc));
    SDL_Quit();
    return code;
  } catch (const std::exception& e) {
    return Fail(e.what(), NotWritten);
  }
}
