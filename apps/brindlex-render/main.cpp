// brindlex-render: renders a model file, a scene file or the built-in demo
// scene into a picture. See --help, and docs/scene-format.md for scenes.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Farm.h"
#include "Options.h"
#include "Progress.h"
#include "RenderJob.h"
#include "SceneAssembly.h"

namespace {

int Fail(const std::string& message, int code) {
  std::cerr << "brindlex-render: " << message << '\n';
  return code;
}

int Run(const std::vector<std::string>& arguments) {
  RenderSettings settings;
  std::string error;
  if (!ParseOptions(arguments, settings, error)) return Fail(error + " (see --help)", ExitBadInput);
  if (settings.help) return std::cout << UsageText(), ExitDone;
  if (settings.version) return std::cout << "brindlex-render " BRINDLEX_VERSION "\n", ExitDone;
  if (!TakeSceneRenderLimits(settings, error)) return Fail(error, ExitBadInput);
  if (settings.mpi) {
    const int code = RunFarm(settings, error);
    return code == ExitDone || error.empty() ? code : Fail(error, code);
  }
  const RenderJob job = MakeJob(settings);
  HostScene host;
  if (!AssembleScene(settings, static_cast<double>(job.width) / job.height, host, error))
    return Fail(error, ExitBadInput);
  const bool pathTracing = host.Options().DoPathTracing();
  const auto style = settings.quiet               ? ProgressDisplay::Style::Quiet
                     : isatty(STDERR_FILENO) != 0 ? ProgressDisplay::Style::Terminal
                                                  : ProgressDisplay::Style::Lines;
  if (!settings.quiet)
    std::cerr << "Rendering " << job.output << " (" << job.width << " x " << job.height << ", "
              << host.TriangleCount() << " triangles" << (pathTracing ? ", path tracing" : "") << ")\n";
  ProgressDisplay progress(std::cerr, style, pathTracing ? job.passes : 1);
  if (pathTracing) progress.SetTimeLimit(job.timeLimit);
  InstallStopHandler();
  const int code = RunRender(host, job, progress, error);
  return code == ExitDone ? code : Fail(error, code);
}

}  // namespace

int main(int argc, char** argv) {
  // Whatever goes wrong ends in one line and an exit code, never a trace.
  try {
    return Run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& e) {
    return Fail(e.what(), ExitNotWritten);
  } catch (...) {
    return Fail("unexpected error", ExitNotWritten);
  }
}
