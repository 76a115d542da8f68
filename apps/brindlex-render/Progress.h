// The progress of a render on the terminal, driven by the messages that the
// engine posts to the host's progress bar and pass window.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>

#include "Options.h"
#include "platform/Window.h"

class ProgressDisplay {
 public:
  // Quiet shows nothing; Terminal rewrites one line in place; Lines writes
  // a plain line now and then, for logs and pipes.
  enum class Style { Quiet, Terminal, Lines };
  // The message the engine posts at the start of each path-tracing pass;
  // the first of the codes that Windows leaves to applications.
  static constexpr unsigned PassMessage = 0x8000;
  // Seconds since some fixed moment.
  using Clock = std::function<double()>;

  // `passes` is the number of path-tracing passes, 1 without path tracing.
  ProgressDisplay(std::ostream& out, Style style, int passes, Clock clock = SteadyClock);
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  // Path tracing that ends with the pass during which `seconds` of passes
  // ran out; 0 for none. Changes the estimate of the time left.
  void SetTimeLimit(double seconds) { timeLimit = seconds; }

  // The window to hand the engine as progress bar and pass window.
  platform::Window* Window() { return &window; }
  // Takes one message; any thread may call it.
  void Receive(unsigned message, WPARAM wParam, LPARAM lParam);
  // Ends the display: the terminal line is finished with a newline.
  void Finish();

  // "blocks 120/300  pass 2/32  6.0 s/pass  elapsed 0:12  left 0:30": the
  // pass and the time per pass only with path tracing, the time left once a
  // block is done. `passes` UnlimitedPasses shows the pass alone. With a
  // `timeLimit` the render is taken to end with the pass during which the
  // limit runs out, or with the last pass if that comes first.
  static std::string FormatLine(unsigned long done, unsigned long total, int pass, int passes, double elapsed,
                                double timeLimit = 0);
  // "shadow maps: light 2  tiles 30/128": the map phase of a scene update,
  // `light` counting the lights whose maps were begun.
  static std::string FormatMapLine(unsigned long light, unsigned long done, unsigned long total);
  // m:ss, or h:mm:ss from an hour on.
  static std::string FormatDuration(double seconds);
  // "2.5 s" below a minute, else as FormatDuration.
  static std::string FormatPassTime(double seconds);

  // The photon maps are shot before the blocks: the engine gives the photons
  // to store with PBM_SETRANGE32 and the count so far with PBM_SETPOS, until
  // PBM_SETRANGE starts the blocks. "photons 250000/1000000  elapsed 0:04".
  static std::string FormatPhotonLine(uint64_t stored, uint64_t total, double elapsed);

 private:
  static double SteadyClock();
  void Show(bool force);
  // Takes the messages of the shooting phase; false for any other.
  bool TakePhotonMessage(unsigned message, WPARAM wParam, LPARAM lParam);
  void ShowPhotons(bool force);
  void EndPhotonLine();
  // The map phase, before the first block; false for a message of another
  // phase.
  bool ReceiveMapMessage(unsigned message, WPARAM wParam);

  std::ostream& out;
  Style style;
  int passes;
  double timeLimit = 0;
  Clock clock;
  platform::MessageWindow window;
  std::mutex mutex;
  double start = 0.0, lastShown = -1.0;
  unsigned long total = 0, done = 0, step = 1;
  int pass = 0, shownPass = 0, shownTenth = -1;
  bool started = false, lineOpen = false;
  bool shooting = false;
  uint64_t photonsStored = 0, photonTotal = 0, shownPhotons = 0;
  double shootingStart = 0.0;
  int shownPhotonTenth = -1;
  unsigned long mapLights = 0, mapTiles = 0, mapTilesDone = 0;
  double mapShown = -1.0;
};
