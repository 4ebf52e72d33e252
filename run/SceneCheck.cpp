#include "run/SceneCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>

#include "exchange/FrameOutput.h"
#include "fluids/caches/Cache_OperatorBase.h"
#include "fluids/scripts/NodeScripts.h"
#include "host/files/FrameFiles.h"
#include "host/render/Camera.h"
#include "host/render/Light.h"
#include "host/render/RenderSettings.h"

namespace orlix {

namespace {

namespace fs = std::filesystem;

using Found = std::vector<RowMistake>;

void Add(Found& found, const BaseObject& object, int row, std::string text, ErrorKind kind = ErrorKind::Scene) {
  found.push_back({object.creationNumber(), row, std::move(text), kind});
}

// --- what pictures refuse --------------------------------------------------------------------------------------------

void CheckPictures(const BaseDocument& document, Found& found) {
  document.ForEachObject([&](const BaseObject& object) {
    RowMistake mistake;
    const TypeRole role = object.type().role;
    const bool good = role == TypeRole::Camera  ? ReadCamera(object, &mistake).ok()
                      : role == TypeRole::Light ? ReadLight(object, &mistake).ok()
                                                : true;
    if (!good) found.push_back(mistake);
    if (role != TypeRole::RenderSettings) return;
    const Status size = CheckPictureSize(object.GetInt(kRenderWidthId), object.GetInt(kRenderHeightId));
    if (!size.ok()) Add(found, object, kRenderWidthId, "times height: " + size.error().text);
    if (!object.GetBool(kRenderExrId) && !object.GetBool(kRenderPngId)) {
      Add(found, object, kRenderPngId, "is false, as \"exr\" is: pictures would leave no file");
    }
  });
}

// --- files that are read ---------------------------------------------------------------------------------------------

// The name in the folder that is nearest to one that isn't there.
std::string NearestFile(const fs::path& path) {
  std::string best;
  int least = 4;
  std::error_code error;
  for (fs::directory_iterator at(path.parent_path(), error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    const int distance = EditDistance(path.filename().string(), name, least);
    if (distance < least) least = distance, best = name;
  }
  return best;
}

void CheckInputs(const BaseDocument& document, Found& found) {
  document.ForEachObject([&](const BaseObject& object) {
    object.type().ForEachParameter([&](const Parameter& row) {
      const std::string name = row.type == ParameterType::File ? object.GetString(row.id) : "";
      const fs::path path = fs::path(document.folder) / name;
      std::error_code error;
      // Numbered files are the mesh's to find.
      if (name.empty() || path.filename().string().find('#') != std::string::npos || fs::exists(path, error)) return;
      const std::string nearest = NearestFile(path);
      const bool numbered = name.find("$F") != std::string::npos || name.find("%0") != std::string::npos;
      Add(found, object, row.id,
          fmt::format("is \"{}\": there is no such file in {}{}", name,
                      fs::absolute(path, error).parent_path().string(),
                      numbered          ? "; # signs stand for the frame number, as in walk.####.obj"
                      : nearest.empty() ? ""
                                        : fmt::format(", did you mean \"{}\"?", nearest)),
          ErrorKind::InputFile);
    });
  });
}

// --- files that are written ------------------------------------------------------------------------------------------

bool Leaves(const fs::path& relative) {
  const fs::path normal = relative.lexically_normal();
  return normal.is_absolute() || (!normal.empty() && *normal.begin() == "..");
}

// An absolute folder is meant; a relative one, or a name, that leads out of the folder of results may be a trap. Names
// make no folders.
void CheckFile(const BaseObject& object, int folderRow, const fs::path& folder, int nameRow, const std::string& name,
               const char* base, bool allowOutside, Found& found) {
  const bool byFolder = folder.is_relative() && Leaves(folder);
  if (!allowOutside && (byFolder || Leaves(folder.is_relative() ? folder / name : fs::path(name)))) {
    Add(found, object, byFolder ? folderRow : nameRow,
        fmt::format("is \"{}\", which leads out of {}; an absolute folder or --allow-outside permits it",
                    byFolder ? folder.string() : name, base));
  } else if (std::any_of(name.begin(), name.end(), [](char c) { return c == '/' || std::iscntrl(std::uint8_t(c)); })) {
    Add(found, object, nameRow, fmt::format("is {:?}, must be without \"/\" and control characters", name));
  }
}

void CheckFiles(const BaseDocument& document, bool allowOutside, Found& found) {
  constexpr const char* kResults = "the folder of results";
  document.ForEachObject([&](const BaseObject& object) {
    if (object.type().role == TypeRole::Output) {
      CheckFile(object, OutputSettings::kFolderId, object.GetString(OutputSettings::kFolderId),
                OutputSettings::kFileNameId, object.GetString(OutputSettings::kFileNameId), kResults, allowOutside,
                found);
    } else if (object.type().role == TypeRole::RenderSettings) {
      CheckFile(object, kRenderFileNameId, {}, kRenderFileNameId, object.GetString(kRenderFileNameId), kResults,
                allowOutside, found);
    }
  });
  for (const CacheFiles& cache : RecordedCaches(document)) {
    const bool own = cache.object->GetInt(Cache_OperatorBase::kFolderSourceId) != 0;
    CheckFile(*cache.object, Cache_OperatorBase::kFolderId,
              own ? cache.object->GetString(Cache_OperatorBase::kFolderId) : "", Cache_OperatorBase::kStemId,
              cache.stem, "the scene's folder", allowOutside, found);
  }
}

void CheckStages(const BaseDocument& document, Found& found) {
  for (const BaseObject* object : document.ObjectsOfType(OutputSettings::Type().id)) {
    const OutputSettings output = OutputSettings::Read(*object);
    if (!output.usd || output.vdb || output.particles || output.meshes != MeshOutput::None) continue;
    Add(found, *object, OutputSettings::kUsdId,
        "asks for a stage that would be empty: the output writes none of \"vdb\", \"meshes\", \"particles\"");
  }
}

fs::path Settled(const fs::path& path) {
  std::error_code error;
  const fs::path settled = fs::weakly_canonical(path, error);
  return error ? path.lexically_normal() : settled;
}

void CheckResultNames(const BaseDocument& document, const fs::path& results, Found& found) {
  std::map<fs::path, ResultName> taken;
  for (const ResultName& name : FrameOutput(document, results).Names(document.minTime.Frame(document.fps))) {
    const auto [first, fresh] = taken.emplace(Settled(name.path), name);
    if (fresh) continue;
    const ResultName& other = first->second;
    if (name.of && other.of && name.of != other.of) {
      Add(found, *name.object, name.row,
          fmt::format("gives {}, which both \"{}\" and \"{}\" would write; give one of them another name",
                      name.path.string(), other.of->Path(), name.of->Path()));
      continue;
    }
    const std::string whose =
        other.object == name.object ? "two of its objects" : fmt::format("\"{}\", too,", other.object->Path());
    Add(found, *name.object, name.row, fmt::format("gives {}, which {} would write", name.path.string(), whose));
  }
}

// Frames are told apart by what stands behind the stem: "smoke" and "smoke1" have one file for frames 10001 and 1.
void CheckCacheNames(const BaseDocument& document, Found& found) {
  const std::vector<CacheFiles> caches = RecordedCaches(document);
  for (std::size_t b = 0; b < caches.size(); ++b) {
    for (std::size_t a = 0; a < b; ++a) {
      if (caches[a].extension != caches[b].extension || Settled(caches[a].folder) != Settled(caches[b].folder))
        continue;
      const std::string &one = caches[a].stem, &other = caches[b].stem;
      if (one != other && !FrameOfName(one, other) && !FrameOfName(other, one)) continue;
      Add(found, *caches[b].object, Cache_OperatorBase::kStemId,
          fmt::format("is \"{}\": its files can't be told from those of \"{}\", in the same folder", other,
                      caches[a].object->Path()));
      break;
    }
  }
}

}  // namespace

std::vector<RowMistake> FindSceneMistakes(const BaseDocument& document, const SceneCheckOptions& options) {
  Found found;
  CheckPictures(document, found);
  CheckInputs(document, found);
  for (RowMistake& mistake : FindScriptMistakes(document)) found.push_back(std::move(mistake));
  CheckFiles(document, options.allowOutside, found);
  CheckStages(document, found);
  CheckResultNames(document, options.results, found);
  CheckCacheNames(document, found);
  return found;
}

}  // namespace orlix
