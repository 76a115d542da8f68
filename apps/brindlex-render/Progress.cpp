#include "Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "shadows/SWShadowMap.h"

namespace {
// A terminal line is rewritten at most this often, in seconds: faster only
// costs the render time.
constexpr double TerminalInterval = 0.1;
}  // namespace

ProgressDisplay::ProgressDisplay(std::ostream& out, Style style, int passes, Clock clock)
    : out(out),
      style(style),
      passes(std::max(passes, 1)),
      clock(std::move(clock)),
      window([this](unsigned message, WPARAM wParam, LPARAM lParam) { Receive(message, wParam, lParam); }) {}

double ProgressDisplay::SteadyClock() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void ProgressDisplay::Receive(unsigned message, WPARAM wParam, LPARAM lParam) {
  std::lock_guard<std::mutex> lock(mutex);
  if (TakePhotonMessage(message, wParam, lParam)) return;
  if (ReceiveMapMessage(message, wParam)) return;
  switch (message) {
    case PBM_SETRANGE:
      // The range counts the blocks of one pass over every face.
      total = HIWORD(static_cast<uint64_t>(lParam));
      start = clock();
      started = true;
      break;
    case PBM_SETSTEP:
      step = static_cast<unsigned long>(wParam);
      break;
    case PBM_SETPOS:
      done = static_cast<unsigned long>(wParam);
      break;
    case PBM_STEPIT:
      done += step;
      break;
    case PassMessage:
      pass = static_cast<int>(lParam);
      break;
    default:
      return;
  }
  Show(false);
}

void ProgressDisplay::Finish() {
  std::lock_guard<std::mutex> lock(mutex);
  EndPhotonLine();
  if ((!started && !lineOpen) || style == Style::Quiet) return;
  if (started) Show(true);
  if (lineOpen) out << '\n' << std::flush;
  lineOpen = false;
}

void ProgressDisplay::Show(bool force) {
  if (!started || style == Style::Quiet) return;
  const double now = clock();
  // The engine's range rounds partial blocks at the edges down, while it
  // steps for every block: the whole is at least what is done.
  const unsigned long all = std::max(total * static_cast<unsigned long>(passes), done);
  const std::string line = FormatLine(done, all, pass, passes, now - start, timeLimit);
  if (style == Style::Terminal) {
    if (!force && pass == shownPass && now - lastShown < TerminalInterval) return;
    out << '\r' << line << "\x1b[K" << std::flush;
    lineOpen = true;
  } else {
    // A line for each pass and for each tenth of the whole.
    const int tenth = all ? static_cast<int>(std::min(done, all) * 10 / all) : 0;
    if (!force && pass == shownPass && tenth == shownTenth) return;
    out << line << '\n' << std::flush;
    shownTenth = tenth;
  }
  shownPass = pass;
  lastShown = now;
}

std::string ProgressDisplay::FormatLine(unsigned long done, unsigned long total, int pass, int passes,
                                        double elapsed, double timeLimit) {
  // Appended piece by piece: GCC 12 warns falsely of an overlap in
  // "/" + std::to_string(...).
  std::string line = "blocks " + std::to_string(done);
  if (passes != UnlimitedPasses) line.append("/").append(std::to_string(total));
  const bool measured = done > 0 && total > 0;
  // Blocks go at an even pace, so a pass takes a pass's share of the
  // blocks at the pace so far.
  const double perPass = measured ? elapsed * static_cast<double>(total) / std::max(passes, 1) / done : 0.0;
  if (pass > 0) {
    line.append("  pass ").append(std::to_string(pass));
    if (passes != UnlimitedPasses) line.append("/").append(std::to_string(passes));
    if (measured) line.append("  ").append(FormatPassTime(perPass)).append("/pass");
  }
  line += "  elapsed " + FormatDuration(elapsed);
  if (!measured) return line;
  double left = elapsed * static_cast<double>(total - std::min(done, total)) / static_cast<double>(done);
  if (timeLimit > 0 && perPass > 0) {
    // The pass during which the limit runs out is the last.
    const double lastPass = std::min<double>(std::max<double>(pass, std::ceil(timeLimit / perPass)), passes);
    left = std::max(lastPass * perPass - elapsed, 0.0);
  }
  return line + "  left " + FormatDuration(left);
}

std::string ProgressDisplay::FormatPassTime(double seconds) {
  if (seconds >= 60) return FormatDuration(seconds);
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

bool ProgressDisplay::ReceiveMapMessage(unsigned message, WPARAM wParam) {
  if (message == RT_SHADOW_MAP_LIGHT_MESSAGE) {
    ++mapLights;
    mapTiles = static_cast<unsigned long>(wParam);
    mapTilesDone = 0;
  } else if (message == RT_SHADOW_MAP_TILE_MESSAGE) {
    ++mapTilesDone;
  } else {
    return false;
  }
  if (style == Style::Quiet || started) return true;
  const bool lightDone = mapTilesDone >= mapTiles;
  const double now = clock();
  const std::string line = FormatMapLine(mapLights, mapTilesDone, mapTiles);
  if (style == Style::Terminal) {
    if (!lightDone && mapTilesDone > 0 && now - mapShown < TerminalInterval) return true;
    out << '\r' << line << "\x1b[K" << std::flush;
    lineOpen = true;
  } else if (lightDone) {
    out << line << '\n' << std::flush;  // one line for each finished map
  }
  mapShown = now;
  return true;
}

std::string ProgressDisplay::FormatMapLine(unsigned long light, unsigned long done, unsigned long total) {
  return "shadow maps: light " + std::to_string(light) + "  tiles " + std::to_string(done) + "/" +
         std::to_string(total);
}

std::string ProgressDisplay::FormatDuration(double seconds) {
  const long whole = std::lround(std::max(seconds, 0.0));
  char text[32];
  if (whole >= 3600)
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  else
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  return text;
}

bool ProgressDisplay::TakePhotonMessage(unsigned message, WPARAM wParam, LPARAM lParam) {
  if (message == PBM_SETRANGE32) {
    shooting = true;
    photonTotal = static_cast<uint64_t>(lParam);
    photonsStored = 0;
    shootingStart = clock();
    shownPhotonTenth = -1;
    shownPhotons = UINT64_MAX;
    ShowPhotons(true);
    return true;
  }
  if (!shooting) return false;
  if (message == PBM_SETPOS) {
    photonsStored = static_cast<uint64_t>(wParam);
    ShowPhotons(false);
    return true;
  }
  // The shadow maps' first light or the blocks' range ends the shooting;
  // the message is theirs as well.
  if (message == PBM_SETRANGE || message == RT_SHADOW_MAP_LIGHT_MESSAGE) EndPhotonLine();
  return false;
}

void ProgressDisplay::ShowPhotons(bool force) {
  if (style == Style::Quiet) return;
  const double now = clock();
  const std::string line = FormatPhotonLine(photonsStored, photonTotal, now - shootingStart);
  if (style == Style::Terminal) {
    if (!force && now - lastShown < TerminalInterval) return;
    out << '\r' << line << "\x1b[K" << std::flush;
    lineOpen = true;
  } else {
    const int tenth =
        photonTotal ? static_cast<int>(std::min(photonsStored, photonTotal) * 10 / photonTotal) : 0;
    if (!force && tenth == shownPhotonTenth) return;
    out << line << '\n' << std::flush;
    shownPhotonTenth = tenth;
    shownPhotons = photonsStored;
  }
  lastShown = now;
}

// The last count stays on its own line above the blocks'.
void ProgressDisplay::EndPhotonLine() {
  if (!shooting) return;
  shooting = false;
  if (style == Style::Quiet) return;
  if (style == Style::Lines && shownPhotons == photonsStored) return;  // already written
  if (style == Style::Terminal)
    out << '\r' << FormatPhotonLine(photonsStored, photonTotal, clock() - shootingStart) << "\x1b[K\n";
  else
    out << FormatPhotonLine(photonsStored, photonTotal, clock() - shootingStart) << '\n';
  out << std::flush;
  lineOpen = false;
  lastShown = -1.0;
}

std::string ProgressDisplay::FormatPhotonLine(uint64_t stored, uint64_t total, double elapsed) {
  return "photons " + std::to_string(stored) + "/" + std::to_string(total) + "  elapsed " +
         FormatDuration(elapsed);
}
