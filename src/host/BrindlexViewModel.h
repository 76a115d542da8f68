// The host's scene model: scene graph and its walks, material trees, render
// options, views, lights and projects. The one header a host includes.
#pragma once

#include "DistributedServer.h"
#include "MaterialTree.h"
#include "ProjectModel.h"
#include "RenderOptions.h"
#include "SceneGraph.h"
#include "SceneLights.h"
#include "SceneTraversal.h"
#include "TextureLink.h"
