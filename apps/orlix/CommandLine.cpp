#include "apps/orlix/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include "apps/orlix/ExitCode.h"
#include "host/description/TypeRegistry.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr const char* kVersion = "orlix 0.1.0";

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--threads", options.threads, "Worker threads, all of the machine's without it")
      ->check(CLI::Range(0, WorkerPool::kMaxWorkers));
  app.add_option("--memory", options.memory, "Most memory of all grids together, such as 8G");
  app.add_flag("--quiet", options.quiet, "No progress, no closing line");
  app.add_flag("--json", options.json, "Results on standard output as JSON");
  app.add_option("--plugins", options.plugins, "A library of nodes from outside, or a folder of them; may stand again")
      ->allow_extra_args(false);
  app.add_option("--log-level", options.logLevel, "What standard error shows")
      ->check(CLI::IsMember({"trace", "debug", "info", "warning", "error", "critical", "off"}));
}

// A command whose options are read into a value of its own.
template <typename Options>
struct Words {
  CLI::App* app;
  std::shared_ptr<Options> options = std::make_shared<Options>();

  Words(CLI::App& parent, CommandLine& line, const char* name, const char* text,
        Status (*run)(const Program&, const Options&))
      : app(parent.add_subcommand(name, text)) {
    app->callback([&line, run, kept = options] {
      line.command = [run, kept](const Program& program) { return run(program, *kept); };
    });
  }
};

// For what an empty variable of a script would leave out.
std::string NotEmpty(const std::string& text) { return text.empty() ? "must not be empty" : ""; }

// What the commands that read a scene share.
void AddScene(CLI::App& app, SceneOptions& options) {
  app.add_option("scene", options.scene, "Scene file")->required();
  app.add_option("--set", options.overrides, "PATH.key=value, over what the scene file says")->allow_extra_args(false);
}

template <typename Options>
void AddView(CLI::App& app, Options& options) {
  static const std::map<std::string, ViewTransform> kViews = {
      {"linear", ViewTransform::Linear}, {"srgb", ViewTransform::Srgb}, {"filmic", ViewTransform::Filmic}};
  app.add_option("--view", options.view, "From light to the values of PNG: linear, srgb, filmic")
      ->transform(CLI::CheckedTransformer(kViews));
}

// And those that go through its frames.
void AddFrames(CLI::App& app, FrameOptions& options) {
  AddScene(app, options);
  app.add_option("--frames", options.frames, "Frames whose results are wanted: 1-100x2,120")->check(NotEmpty);
  app.add_option("--out", options.out, "Folder of results; the scene's own without it")->check(NotEmpty);
  app.add_flag("--allow-outside", options.allowOutside,
               "Names and relative folders of the scene may lead out of the folder of results");
  app.add_flag("--overwrite", options.overwrite, "Caches record over the frames that they have");
  app.add_flag(
      "--allow-missing", options.allowMissing,
      "Go on where a played cache has no whole file for a frame, in which its nodes are simulated as without a cache; "
      "where nothing is simulated, they stay as they were");
  AddView(app, options);
}

void AddRun(CLI::App& parent, CommandLine& line) {
  const Words<RunOptions> words(parent, line, "run", "Simulate a scene, then write what its \"output\" asks for",
                                RunCommand);
  RunOptions& options = *words.options;
  AddFrames(*words.app, options);
  words.app->add_option("--stats", options.stats, "Write statistics here, one JSON object a line");
  words.app->add_flag("--missing", options.missing,
                      "Make only frames whose results aren't whole or were made from something else");
  words.app->add_flag("--resume", options.resume, "Go on from the last checkpoint in the folder of results");
  words.app
      ->add_option("--checkpoint-every", options.checkpointEvery,
                   "Frames from one checkpoint to the next, 10 without it; 0 writes none")
      ->check(CLI::Range(0, 1000000));
  words.app->add_flag("--dry-run", options.dryRun, "Read and check the scene, say what would be done");
}

void AddPasses(CLI::App& parent, CommandLine& line) {
  const Words<PassesOptions> words(parent, line, "passes",
                                   "Say which results of a scene can be made from which caches, and what is missing",
                                   PassesCommand);
  AddScene(*words.app, *words.options);
  words.app->add_option("--out", words.options->out, "Folder of results; the scene's own without it");
}

void AddWatch(CLI::App& parent, CommandLine& line) {
  const Words<WatchOptions> words(parent, line, "watch",
                                  "Say what a running job has finished, its pace, what is broken", WatchCommand);
  words.app->add_option("folder", words.options->folder, "A folder of results")->required();
  words.app->add_flag("--once", words.options->once, "Once, instead of until the job ends");
}

void AddRender(CLI::App& parent, CommandLine& line) {
  const Words<RenderCommandOptions> words(parent, line, "render", "Make pictures, from caches or from a run",
                                          RenderCommand);
  RenderCommandOptions& options = *words.options;
  AddFrames(*words.app, options);
  words.app->add_option("--size", options.size, "WIDTHxHEIGHT, over the scene's render settings");
  words.app->add_option("--samples", options.samples, "Rays of each pixel, over the scene's render settings")
      ->check(CLI::Range(1, 4096));
  words.app->add_option("--crop", options.crop, "WIDTHxHEIGHT+LEFT+TOP: only that part of the picture, in pixels");
  words.app->add_flag("--resume", options.resume,
                      "Go on: pictures that are done stay, one that was broken off is ended");
  words.app->add_flag("--dry-run", options.dryRun, "Read and check the scene, say what would be done");
  words.app->add_flag("--preview", options.preview, "A quick look: slices of the grids with colour bars");
}

void AddValidate(CLI::App& parent, CommandLine& line) {
  const Words<SceneOptions> words(parent, line, "validate", "Find the mistakes of a scene file, all in one pass",
                                  ValidateCommand);
  AddScene(*words.app, *words.options);
}

void AddPipeline(CLI::App& parent, CommandLine& line) {
  const Words<SceneOptions> words(parent, line, "pipeline", "Say in which order a scene's nodes run, stage by stage",
                                  PipelineCommand);
  AddScene(*words.app, *words.options);
}

void AddCache(CLI::App& parent, CommandLine& line) {
  const Words<CacheCommandOptions> words(parent, line, "cache", "Say what a scene's caches hold, or delete them",
                                         CacheCommand);
  CacheCommandOptions& options = *words.options;
  AddScene(*words.app, options);
  words.app->add_option("--cache", options.cache, "Name of one cache; all without it");
  words.app->add_option("--frame", options.frame, "Frame whose file is looked into; the scene's first without it");
  auto* remove = words.app->add_flag("--delete", options.remove, "Delete the frames");
  words.app->add_flag("--yes", options.yes, "Without asking")->needs(remove);
}

void AddNew(CLI::App& parent, CommandLine& line) {
  const Words<NewOptions> words(parent, line, "new", "Start a scene from a recipe, in a folder of its own", NewCommand);
  NewOptions& options = *words.options;
  words.app->add_option("recipe", options.recipe, "Name of a recipe; without it they are listed");
  words.app->add_option("--out", options.out, "The folder; the recipe's name without it");
  words.app->add_option("--size", options.size, "Longest side of the container, such as 2m or 50cm");
  words.app->add_option("--cells", options.cells, "Cells of the container, such as 2M or 500k");
}

void AddInfo(CLI::App& parent, CommandLine& line) {
  const Words<std::string> words(parent, line, "info",
                                 "Say what is in a file; with --json a scene as it was understood", InfoCommand);
  words.app->add_option("file", *words.options, "A file")->required();
}

void AddVerify(CLI::App& parent, CommandLine& line) {
  const Words<std::string> words(parent, line, "verify",
                                 "Say which caches, checkpoints, VDB files and pictures are whole", VerifyCommand);
  words.app->add_option("folder", *words.options, "A folder of results, or one file")->required();
}

void AddParams(CLI::App& parent, CommandLine& line) {
  const Words<ParamsOptions> words(parent, line, "params",
                                   "Print the types, the parameters of one, or rows with a word", ParamsCommand);
  words.app->add_option("type", words.options->type, "A type's name or id; or a word, for the rows that have it");
  words.app->add_flag("--all", words.options->all, "Buttons, headings and rows that nothing reads, too");
  auto* schema = words.app->add_flag("--schema", words.options->schema, "A JSON schema of scene files, for editors");
  words.app->add_option("--markdown", words.options->markdown, "Write the reference pages into this folder")
      ->excludes(schema);
}

void AddConvert(CLI::App& parent, CommandLine& line) {
  const Words<ConvertOptions> words(parent, line, "convert", "Convert a mesh, particles, a picture or a cache's frame",
                                    ConvertCommand);
  words.app->add_option("in", words.options->in, "File to read")->required();
  words.app->add_option("out", words.options->out, "File to write; its ending says the format")->required();
  words.app->add_flag("--overwrite", words.options->overwrite, "Replaces the file to write, where it is there");
  words.app->add_option("--exposure", words.options->exposure, "Stops, for PNG");
  AddView(*words.app, *words.options);
  const std::map<std::string, bool> programs = {{"blender", false}, {"houdini", true}};
  words.app->add_option("--names", words.options->houdini, "Whose name a VDB's velocity has: blender, houdini")
      ->transform(CLI::CheckedTransformer(programs));
  words.app->add_option("--grids", words.options->grids,
                        "Names of a cache's entries, in order, with commas between; a cache itself has none");
  words.app->add_option("--scale", words.options->scale, "Multiplies all lengths of meshes, particles and grids")
      ->check([](const std::string& text) {
        double value = 0;
        const bool fits = CLI::detail::lexical_cast(text, value) && value >= 1e-9 && value <= 1e9;
        return fits ? std::string() : text + " must be a number, 1e-9 to 1e9";
      });
  words.app
      ->add_option(
          "--up", words.options->up,
          "A quarter turn about x: z where y was upwards, y where z was. A file that says so already isn't turned")
      ->check(CLI::IsMember({"y", "z"}));
}

void AddFilm(CLI::App& parent, CommandLine& line) {
  const Words<FilmOptions> words(parent, line, "film", "Make a film of a folder's pictures, where ffmpeg is installed",
                                 FilmCommand);
  FilmOptions& options = *words.options;
  words.app->add_option("folder", options.folder, "A folder with pictures such as frame.0001.png")->required();
  words.app->add_option("--name", options.name, "Which pictures: frame; without it those of which there are most");
  words.app->add_option("--out", options.out, "File to write; its ending says the kind of film");
  words.app->add_option("--fps", options.fps, "Pictures a second, 24 without it")->check(CLI::Range(0.01, 1000.0));
}

void AddSheet(CLI::App& parent, CommandLine& line) {
  const Words<SheetOptions> words(parent, line, "sheet", "Put a folder's pictures on one, small, with their numbers",
                                  SheetCommand);
  SheetOptions& options = *words.options;
  words.app->add_option("folder", options.folder, "A folder with pictures such as frame.0001.png")->required();
  words.app->add_option("--name", options.name, "Which pictures: frame; without it those of which there are most");
  words.app->add_option("--out", options.out, "PNG or OpenEXR file to write");
  words.app->add_option("--columns", options.columns, "Pictures beside each other, 5 without it")
      ->check(CLI::Range(1, 1000));
  words.app->add_option("--count", options.count, "How many at most, 20 without it")->check(CLI::Range(1, 10000));
  words.app->add_option("--width", options.width, "Pixels of each, 320 without it")->check(CLI::Range(1, 4096));
}

// The arguments with the command first, so that its options may stand before it too.
std::vector<std::string> CommandFirst(int count, const char* const* arguments, const CLI::App& app) {
  std::vector<std::string> list(arguments + std::min(count, 1), arguments + count);
  const std::vector<const CLI::App*> commands = app.get_subcommands([](const CLI::App*) { return true; });
  const auto isCommand = [&](const std::string& word) {
    return std::any_of(commands.begin(), commands.end(), [&](auto* command) { return command->get_name() == word; });
  };
  const auto command = std::find_if(list.begin(), list.end(), isCommand);
  if (command != list.end()) std::rotate(list.begin(), command, command + 1);
  return list;
}

// "did you mean" for a word that is none of the names but nearly one.
std::string Suggestion(const std::string& word, const std::vector<std::string>& names) {
  constexpr int kMostEdits = 3;
  std::string best;
  int least = kMostEdits + 1;
  for (const std::string& name : names) {
    if (const int edits = EditDistance(word, name, least); edits < least) least = edits, best = name;
  }
  return best.empty() || least == 0 ? "" : fmt::format("{}: did you mean {}?\n", word, best);
}

// For a command and options that the parser doesn't know. Words are in the order in which they were typed.
std::string Suggestions(const std::vector<std::string>& words, const CLI::App& app) {
  std::vector<std::string> commands, options;
  for (const CLI::App* each : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(each->get_name());
  }
  const bool known = !words.empty() && std::count(commands.begin(), commands.end(), words[0]) > 0;
  const auto addOptions = [&](const CLI::App& from) {
    for (const CLI::Option* option : from.get_options()) {
      for (const std::string& name : option->get_lnames()) options.push_back("--" + name);
    }
  };
  addOptions(app);
  if (known) addOptions(*app.get_subcommand(words[0]));
  std::string text = known || words.empty() || words[0].starts_with('-') ? "" : Suggestion(words[0], commands);
  for (const std::string& word : words) {
    if (word.starts_with("--")) text += Suggestion(word.substr(0, word.find('=')), options);
  }
  return text;
}

}  // namespace

std::optional<CommandLine> ReadCommandLine(int argumentCount, const char* const* arguments, int& exitCode) {
  CommandLine line;
  CLI::App app("A fluid and volume effects engine", "orlix");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(1);
  app.fallthrough();
  AddGlobalOptions(app, line.options);
  for (const auto add : {AddNew, AddRun, AddPasses, AddWatch, AddRender, AddValidate, AddPipeline, AddCache, AddInfo,
                         AddVerify, AddParams, AddConvert, AddFilm, AddSheet})
    add(app, line);
  std::vector<std::string> words = CommandFirst(argumentCount, arguments, app);
  std::vector<std::string> fromBack(words.rbegin(), words.rend());  // as the parser takes them
  try {
    app.parse(fromBack);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error, std::cout, std::cerr) == 0 ? 0 : ExitCodeOf(ErrorKind::Usage);
    if (exitCode != 0) std::cerr << Suggestions(words, app);
    return std::nullopt;
  }
  return line;
}

}  // namespace orlix
