// The scene reader on any bytes, with the program's own types. What it reads must come back from the writer the same.

#include <cstdio>
#include <cstdlib>

#include "run/Engine.h"
#include "scene_file/SceneReader.h"
#include "scene_file/SceneWriter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const orlix::Engine engine;
  const std::string text(reinterpret_cast<const char*>(data), size);
  orlix::SceneReadOptions options;
  // An include of "again.json" reads the same bytes under another name; nothing is read from disk.
  options.load = [&](const std::string& path) -> orlix::Result<std::string> {
    if (path == "again.json") return text;
    return orlix::Error{orlix::ErrorKind::InputFile, path + ": can't be opened"};
  };
  // What follows "--set " in the last line is an override.
  if (const auto set = text.rfind("--set "); set != std::string::npos)
    options.overrides.push_back(text.substr(set + 6));
  const auto scene = orlix::ReadSceneText("fuzz.json", text, engine.types, options);
  if (!scene.ok()) {
    if (scene.error().text.empty()) std::abort();
    return 0;
  }
  if (!scene->document->SetTime(scene->document->maxTime)) return 0;  // a file that isn't there
  const auto written = orlix::WriteScene(*scene->document);
  if (!written.ok()) std::abort();
  const auto again = orlix::ReadSceneText("written.json", *written, engine.types);
  if (!again.ok()) {
    std::fprintf(stderr, "%s\n%s\n", again.error().text.c_str(), written->c_str());
    std::abort();
  }
  if (*orlix::WriteScene(*again->document) != *written) std::abort();
  return 0;
}
