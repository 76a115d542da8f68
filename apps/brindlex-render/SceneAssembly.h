// Turns the command line into a host scene and a render job: the models,
// the scene file, the camera and the options, in the order in which each
// overrides the one before. Shared by every program that renders.
#pragma once

#include <string>

#include "HostScene.h"
#include "Options.h"
#include "RenderJob.h"

// Loads the models or the demo scene, applies the scene file and the
// command line, and places the camera for a picture of `aspect` (width /
// height). False with a one-line reason in `error`.
bool AssembleScene(const RenderSettings& settings, double aspect, HostScene& host, std::string& error);

// Takes the path-tracing passes and time limit of the scene file where the
// command line gives none. False with a one-line reason in `error` for a
// scene file that can't be read, or a time limit on a cube map, whose six
// faces run their passes one after the other.
bool TakeSceneRenderLimits(RenderSettings& settings, std::string& error);

// The picture files, size and passes that the settings ask for.
RenderJob MakeJob(const RenderSettings& settings);
