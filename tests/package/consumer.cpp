// A host in miniature: create an engine, start it, ask it, end it.
#include <BrindlexViewMath.h>
#include <BrindlexViewRTRenderEngine.h>
#include <brindlexutil.h>

#include <cstdio>

int main() {
  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  if (!engine) return 1;
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  const int renderer = engine->QueryRenderer(0);
  const unsigned int processors = engine->GetProcessorCount();
  engine->ShutDown();
  const unsigned long left = engine->Release();

  SCENE_MATRIX identity;
  GetIdentityMatrix(&identity);
  const bool ok = renderer == 1 && processors == ::GetProcessorCount() && left == 0 && identity.m[0] == 1.0f;
  std::printf("renderer %d, processors %u, references left %lu: %s\n", renderer, processors, left,
              ok ? "ok" : "wrong");
  return ok ? 0 : 1;
}
