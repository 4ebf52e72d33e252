#pragma once
// The commands of the program. Adding one: its options and its function here, its words in CommandLine.cpp.

#include <optional>
#include <string>
#include <vector>

#include "apps/orlix/Console.h"
#include "globals/Result.h"
#include "host/pictures/PictureView.h"
#include "run/Engine.h"

namespace orlix {

// Options that stand before or after any command.
struct GlobalOptions {
  int threads = 0;     // 0: all that the machine offers
  std::string memory;  // "8G"; empty: no limit
  bool quiet = false, json = false;
  std::string logLevel = "info";
  std::vector<std::string> plugins;  // libraries, or folders of them
};

struct Program {
  Engine& engine;
  Console& console;
  const GlobalOptions& options;
};

struct SceneOptions {
  std::string scene;
  std::vector<std::string> overrides;  // PATH.key=value
};
Status ValidateCommand(const Program& program, const SceneOptions& options);
Status PipelineCommand(const Program& program, const SceneOptions& options);

struct FrameOptions : SceneOptions {
  std::string frames, out;
  bool allowMissing = false;  // files of played caches
  bool allowOutside = false;  // results may leave their folder
  bool overwrite = false;     // frames of recorded caches
  std::optional<ViewTransform> view;
};

struct RunOptions : FrameOptions {
  std::string stats;
  bool dryRun = false, resume = false;
  bool missing = false;  // only frames whose results aren't whole
  int checkpointEvery = 10;
};
Status RunCommand(const Program& program, const RunOptions& options);

// What of a scene's results can be made from which caches.
struct PassesOptions : SceneOptions {
  std::string out;
};
Status PassesCommand(const Program& program, const PassesOptions& options);

struct WatchOptions {
  std::string folder;
  bool once = false;
};
Status WatchCommand(const Program& program, const WatchOptions& options);

struct RenderCommandOptions : FrameOptions {
  std::string size, crop;
  int samples = 0;
  bool preview = false, dryRun = false, resume = false;
};
Status RenderCommand(const Program& program, const RenderCommandOptions& options);

struct CacheCommandOptions : SceneOptions {
  std::string cache;  // a cache's name or path; empty for all
  std::optional<int> frame;
  bool remove = false, yes = false;
};
Status CacheCommand(const Program& program, const CacheCommandOptions& options);

struct NewOptions {
  std::string recipe;       // empty: the list of them
  std::string out;          // a folder; the recipe's name without it
  std::string size, cells;  // "2m", "2M"
};
Status NewCommand(const Program& program, const NewOptions& options);

struct ParamsOptions {
  std::string type, markdown;
  bool schema = false, all = false;
};
Status ParamsCommand(const Program& program, const ParamsOptions& options);

struct ConvertOptions {
  std::string in, out;
  double exposure = 0;
  std::optional<ViewTransform> view;  // without one "filmic" for OpenEXR, "srgb" for PNG
  bool houdini = false;               // how a VDB's velocity is called
  std::string grids;                  // names of a cache's entries, with commas between; an empty one keeps its own
  double scale = 1;                   // all lengths of meshes, particles and grids
  bool overwrite = false;             // a file that is there
  std::string up;                     // "y" or "z": what is to be upwards, and isn't; empty leaves it
};
Status ConvertCommand(const Program& program, const ConvertOptions& options);

struct FilmOptions {
  std::string folder, name, out;  // name: of the pictures; out: NAME.mp4 in the folder without it
  double fps = 24;
};
Status FilmCommand(const Program& program, const FilmOptions& options);

struct SheetOptions {
  std::string folder, name, out;  // as above; NAME_sheet.png
  int columns = 5, count = 20, width = 320;
};
Status SheetCommand(const Program& program, const SheetOptions& options);

// By the file's extension; Usage for one that nothing here knows.
Status InfoCommand(const Program& program, const std::string& path);

Status VerifyCommand(const Program& program, const std::string& folder);

}  // namespace orlix
