#include "ImportGuard.h"

#include <assimp/DefaultLogger.hpp>
#include <assimp/Exporter.hpp>
#include <assimp/LogStream.hpp>
#include <assimp/scene.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include "ModelScrub.h"

namespace fs = std::filesystem;

namespace {

// Sanitizers reserve terabytes of address space, so an address-space limit
// would stop every child; the parent's watch on resident memory still holds.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SanitizedBuild = true;
#else
constexpr bool SanitizedBuild = false;
#endif
constexpr bool AddressSpaceLimit = !SanitizedBuild;

// How often the parent looks at the child's time and memory, in ms.
constexpr int WatchInterval = 20;

// The child's exit codes. Any other end is a crash, also one that a
// sanitizer or the runtime turns into an exit code (1 is theirs).
enum ChildExit { ChildRead = 0, ChildFailed = 3 };

// Collects what the reader logs as errors.
class ErrorCollector : public Assimp::LogStream {
 public:
  explicit ErrorCollector(std::vector<std::string>& errors) : errors(errors) {}
  void write(const char* message) override {
    std::string line = message;
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    // Assimp starts each line with its own tag, "Error, T0: ".
    const size_t tag = line.find(": ");
    if (tag != std::string::npos && tag < 16) line = line.substr(tag + 2);
    if (errors.size() < 8) errors.push_back(line);
  }

 private:
  std::vector<std::string>& errors;
};

int MetadataInt(const aiScene* scene, const char* key, int fallback) {
  int32_t value;
  return scene->mMetaData && scene->mMetaData->Get(key, value) ? value : fallback;
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool EndsWithStepClosing(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  std::string tail(static_cast<size_t>(std::min<std::streamoff>(size, 256)), '\0');
  in.seekg(size - static_cast<std::streamoff>(tail.size()));
  in.read(tail.data(), static_cast<std::streamsize>(tail.size()));
  return in && tail.find("END-ISO-10303-21") != std::string::npos;
}

void RecordFacts(const fs::path& file, const aiScene* scene, ImportFacts& facts) {
  // Assimp hands most formats over y-up, turning those whose standard is
  // z-up (3DS, IFC, Collada with Z_UP); formats that record their axes
  // (FBX) say so in the metadata.
  facts.upAxis = MetadataInt(scene, "UpAxis", 1), facts.upSign = MetadataInt(scene, "UpAxisSign", 1);
  facts.rightAxis = MetadataInt(scene, "CoordAxis", 0),
  facts.rightSign = MetadataInt(scene, "CoordAxisSign", 1);
  // Formats whose files are z-up and that Assimp hands over as they stand
  // (Valve's SMD, Quick3D, terrains), and DirectX files, which Assimp hands
  // over with z negated in turning them right-handed. Assimp turns DXF to
  // y-up itself; AC3D is y-up.
  static const std::map<std::string, int> zUp = {{".smd", 1}, {".vta", 1}, {".ter", 1}, {".hmp", 1},
                                                 {".x", -1},  {".q3o", 1}, {".q3s", 1}};
  const auto zUpSign = zUp.find(Lower(file.extension().string()));
  if (!(scene->mMetaData && scene->mMetaData->HasKey("UpAxis")) && zUpSign != zUp.end())
    facts.upAxis = 2, facts.upSign = zUpSign->second, facts.rightAxis = 0, facts.rightSign = 1;
  // Assimp reads a STEP file cut short without a word, and renders what it
  // got; a complete one ends with its closing line.
  if (Lower(file.extension().string()) == ".ifc" && !EndsWithStepClosing(file))
    facts.readerErrors.insert(facts.readerErrors.begin(),
                              "the file ends without its closing END-ISO-10303-21 line (cut short?)");
  aiString format;
  const bool named = scene->mMetaData && scene->mMetaData->Get("SourceAsset_Format", format);
  const std::string extension = Lower(file.extension().string());
  facts.gltf = (named && std::strstr(format.C_Str(), "glTF")) || extension == ".gltf" || extension == ".glb";
  facts.collada =
      (named && std::strstr(format.C_Str(), "Collada")) || extension == ".dae" || extension == ".zae";
  // Units: glTF is metres by definition; Assimp turns Collada's <unit> and
  // IFC's unit assignment into metres itself; FBX records centimetres per
  // unit and Assimp leaves the geometry as it is.
  float centimetres = 0.0f;
  double centimetres64 = 0.0;
  if (scene->mMetaData && scene->mMetaData->Get("UnitScaleFactor", centimetres) && centimetres > 0.0f)
    facts.metresPerUnit = centimetres / 100.0;
  else if (scene->mMetaData && scene->mMetaData->Get("UnitScaleFactor", centimetres64) && centimetres64 > 0.0)
    facts.metresPerUnit = centimetres64 / 100.0;
  else if (facts.gltf || facts.collada || extension == ".ifc" || extension == ".ifczip")
    facts.metresPerUnit = 1.0;
}

// The facts as lines of "key value", the way they cross the pipe.
std::string FactsText(const ImportFacts& f) {
  std::ostringstream out;
  out.precision(17);
  out << "axes " << f.upAxis << ' ' << f.upSign << ' ' << f.rightAxis << ' ' << f.rightSign << '\n'
      << "format " << f.gltf << ' ' << f.collada << '\n'
      << "scrub " << f.badVertices << ' ' << f.droppedTriangles << ' ' << f.remadeNormals << '\n';
  if (f.metresPerUnit) out << "unit " << *f.metresPerUnit << '\n';
  for (const std::string& e : f.readerErrors) out << "readerError " << e << '\n';
  return out.str();
}

void ParseFacts(const std::string& text, ImportFacts& f, std::string& error) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key == "axes") words >> f.upAxis >> f.upSign >> f.rightAxis >> f.rightSign;
    if (key == "format") words >> f.gltf >> f.collada;
    if (key == "scrub") words >> f.badVertices >> f.droppedTriangles >> f.remadeNormals;
    if (key == "unit") f.metresPerUnit.emplace(), words >> *f.metresPerUnit;
    if (key == "readerError" && line.size() > 12) f.readerErrors.push_back(line.substr(12));
    if (key == "error" && line.size() > 6) error = line.substr(6);
  }
}

bool WriteAll(int fd, const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, bytes, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes += n, size -= static_cast<size_t>(n);
  }
  return true;
}

uint64_t StatmField(pid_t pid, int field) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/statm");
  uint64_t value = 0;
  for (int i = 0; i <= field && in >> value; ++i) {
  }
  return value * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Metadata is read into the facts before the transfer, and Assimp's scene
// copy, on which the transfer rests, stops on some kinds of it.
void DropMetadata(aiNode* node) {
  delete node->mMetaData;
  node->mMetaData = nullptr;
  for (unsigned int i = 0; i < node->mNumChildren; ++i) DropMetadata(node->mChildren[i]);
}

// Reads `file` with `importer` and post-processes it; null when nothing
// usable was read.
const aiScene* ReadAndMend(Assimp::Importer& importer, const fs::path& file,
                           const std::function<void(Assimp::Importer&)>& configure, unsigned int steps,
                           ImportFacts& facts) {
  configure(importer);
  // Bad vertices and normals are dealt with between reading and the
  // post-processing, which would otherwise spread them to neighbours.
  const aiScene* scene = importer.ReadFile(file.string(), 0);
  if (!scene || !scene->mRootNode) return nullptr;
  ScrubScene(const_cast<aiScene*>(scene), facts);
  RecordFacts(file, scene, facts);
  // Only the reading tells of a model read in part; the steps after it
  // log what they could not add (tangents without texture coordinates).
  Assimp::DefaultLogger::kill();
  scene = importer.ApplyPostProcessing(steps);
  return scene && scene->mRootNode ? scene : nullptr;
}

[[noreturn]] void RunChild(const fs::path& file, const std::function<void(Assimp::Importer&)>& configure,
                           unsigned int steps, uint64_t memoryLimit, int sceneFd, int factsFd) {
  if (AddressSpaceLimit) {
    // What the child inherits counts too: the limit is on top of it.
    const rlim_t limit = StatmField(getpid(), 0) + memoryLimit;
    const rlimit space{limit, limit};
    setrlimit(RLIMIT_AS, &space);
  }
  // Some readers print to the terminal (OpenGEX's parser does); the child
  // reports through the pipe only, so that a bad file ends in one line.
  // Sanitizer builds keep standard error for the sanitizers' reports.
  if (const int quiet = open("/dev/null", O_WRONLY); quiet >= 0) {
    dup2(quiet, STDOUT_FILENO);
    if (!SanitizedBuild) dup2(quiet, STDERR_FILENO);
    close(quiet);
  }
  ImportFacts facts;
  std::string error;
  try {
    Assimp::DefaultLogger::create(nullptr, Assimp::Logger::NORMAL, 0);
    Assimp::DefaultLogger::get()->attachStream(new ErrorCollector(facts.readerErrors), Assimp::Logger::Err);
    Assimp::Importer importer;
    const aiScene* scene = ReadAndMend(importer, file, configure, steps, facts);
    if (!scene) {
      error = importer.GetErrorString();
      if (error.empty()) error = "no scene in it";
    } else {
      aiScene* transfer = const_cast<aiScene*>(scene);
      delete transfer->mMetaData;
      transfer->mMetaData = nullptr;
      DropMetadata(transfer->mRootNode);
      Assimp::Exporter exporter;
      const aiExportDataBlob* blob = exporter.ExportToBlob(scene, "assbin", 0);
      if (!blob || !WriteAll(sceneFd, blob->data, blob->size)) error = "the scene could not be passed on";
    }
  } catch (const std::bad_alloc&) {
    error = "std::bad_alloc";
  } catch (const std::exception& e) {
    error = e.what();
  }
  std::string text = FactsText(facts);
  if (!error.empty()) text += "error " + error + "\n";
  WriteAll(factsFd, text.data(), text.size());
  _exit(error.empty() ? ChildRead : ChildFailed);
}

std::string Seconds(double seconds) {
  std::ostringstream out;
  out << seconds;
  return out.str();
}

std::string MegaBytes(uint64_t bytes) {
  return std::to_string(bytes >> 20) + " MB";
}

// Waits for the child, reading what it reports, and stops it at the limits.
// The wait status, or -1 when the child was stopped; `why` then says why.
int WatchChild(pid_t child, int factsFd, const ImportLimits& limits, uint64_t memoryLimit, std::string& facts,
               std::string& why) {
  const auto start = std::chrono::steady_clock::now();
  int status = 0;
  bool open = true;
  for (;;) {
    if (open) {
      pollfd p{factsFd, POLLIN, 0};
      if (poll(&p, 1, WatchInterval) > 0) {
        char buffer[4096];
        const ssize_t n = read(factsFd, buffer, sizeof buffer);
        if (n > 0) facts.append(buffer, static_cast<size_t>(n));
        if (n == 0) open = false;
      }
    } else {
      usleep(WatchInterval * 1000);
    }
    const pid_t done = waitpid(child, &status, WNOHANG);
    if (done == child) break;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (seconds > limits.seconds)
      why = "reading took longer than " + Seconds(limits.seconds) +
            " seconds (the file is probably damaged or truncated; --import-timeout sets the limit)";
    else if (StatmField(child, 1) > memoryLimit)
      why = "reading needed more than " + MegaBytes(memoryLimit) +
            " of memory (the file is probably damaged: it claims more than it holds)";
    if (!why.empty()) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return -1;
    }
  }
  // What the child wrote just before it ended.
  char buffer[4096];
  for (ssize_t n; open && (n = read(factsFd, buffer, sizeof buffer)) > 0;)
    facts.append(buffer, static_cast<size_t>(n));
  return status;
}

std::string ChildFailure(int status, const std::string& reported) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    if (signal == SIGABRT)
      return "the model reader stopped on an internal check (the file is probably damaged or truncated)";
    return std::string("the model reader crashed (") + strsignal(signal) + "; the file is probably damaged)";
  }
  if (WEXITSTATUS(status) != ChildFailed)
    return "the model reader crashed (exit code " + std::to_string(WEXITSTATUS(status)) +
           "; the file is probably damaged)";
  if (reported.find("bad_alloc") != std::string::npos)
    return "reading ran out of memory (the file is probably damaged: it claims more than it holds)";
  // What the post-processing says when it has dropped every point and line
  // and nothing is left.
  if (reported.find("No meshes remaining") != std::string::npos)
    return "holds no triangles (only points or lines)";
  return "cannot be read as a model" + (reported.empty() ? std::string() : ": " + reported);
}

}  // namespace

uint64_t ImportMemoryLimit(const ImportLimits& limits) {
  if (limits.bytes) return limits.bytes;
  const uint64_t memory = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
  return std::max<uint64_t>(memory / 2, uint64_t{1} << 30);
}

bool ReadModelGuarded(const fs::path& file, const std::function<void(Assimp::Importer&)>& configure,
                      unsigned int steps, const ImportLimits& limits, ReadModel& model, std::string& error) {
  if (limits.inProcess) {
    model.importer = std::make_unique<Assimp::Importer>();
    model.scene = ReadAndMend(*model.importer, file, configure, steps, model.facts);
    if (!model.scene) error = "cannot be read as a model: " + std::string(model.importer->GetErrorString());
    return model.scene != nullptr;
  }
  // The scene crosses in memory that belongs to no file, so nothing is
  // left behind whatever becomes of either process.
  const int sceneFd = memfd_create("brindlex-import", MFD_CLOEXEC);
  int pipeFds[2];
  if (sceneFd < 0 || pipe2(pipeFds, O_CLOEXEC) != 0) {
    if (sceneFd >= 0) close(sceneFd);
    error = std::string("cannot start the model reader: ") + std::strerror(errno);
    return false;
  }
  const uint64_t memoryLimit = ImportMemoryLimit(limits);
  const pid_t child = fork();
  if (child == 0) {
    close(pipeFds[0]);
    RunChild(file, configure, steps, memoryLimit, sceneFd, pipeFds[1]);
  }
  close(pipeFds[1]);
  if (child < 0) {
    close(pipeFds[0]), close(sceneFd);
    error = std::string("cannot start the model reader: ") + std::strerror(errno);
    return false;
  }
  std::string facts, why;
  const int status = WatchChild(child, pipeFds[0], limits, memoryLimit, facts, why);
  close(pipeFds[0]);
  std::string reported;
  ParseFacts(facts, model.facts, reported);
  if (status < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != ChildRead) {
    close(sceneFd);
    error = status < 0 ? why : ChildFailure(status, reported);
    return false;
  }
  std::vector<char> blob(static_cast<size_t>(std::max<off_t>(lseek(sceneFd, 0, SEEK_END), 0)));
  const bool got =
      !blob.empty() && pread(sceneFd, blob.data(), blob.size(), 0) == static_cast<ssize_t>(blob.size());
  close(sceneFd);
  model.importer = std::make_unique<Assimp::Importer>();
  model.scene = got ? model.importer->ReadFileFromMemory(blob.data(), blob.size(), 0, "assbin") : nullptr;
  if (!model.scene || !model.scene->mRootNode) {
    error = "the model reader's scene could not be taken over";
    return false;
  }
  return true;
}
