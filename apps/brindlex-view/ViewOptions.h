// The command line of brindlex-view: brindlex-render's options for the
// scene, and a few of its own for the window.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Options.h"

struct ViewSettings {
  RenderSettings render;
  std::string screenshot;  // --screenshot: what the window shows, saved at the end
  bool exitAfterFrame = false;
  std::string log;  // --log: the engine's log and the program's timings; "-" is standard error
};

// Fills `settings`; false with a one-line reason in `error`. Options that
// only make sense for a picture file are refused.
bool ParseViewOptions(const std::vector<std::string>& arguments, ViewSettings& settings, std::string& error);

std::string ViewUsageText();

// Where `S` saves the picture: "<stem>-<n>.png" with three digits or more,
// the first number from 1 on that names no file yet. The folder and stem
// are those of -o, else of the model, else of the scene file, else
// "brindlex-demo" in the current folder.
std::filesystem::path NextPictureName(const RenderSettings& settings);
