// The host's scene model: scene graph and its walks, material trees, render
// options, views, lights and projects. The one header a host includes.
#pragma once

#include "host/DistributedServer.h"
#include "host/MaterialTree.h"
#include "host/ProjectModel.h"
#include "host/RenderOptions.h"
#include "host/SceneGraph.h"
#include "host/SceneLights.h"
#include "host/SceneTraversal.h"
#include "host/TextureLink.h"
