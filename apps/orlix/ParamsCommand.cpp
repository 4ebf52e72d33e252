// orlix params [WORD]: the reference of types and their parameters; of a word that is no type the rows that have it.

#include <fmt/format.h>

#include <filesystem>

#include "apps/orlix/Command.h"
#include "host/files/AtomicFile.h"
#include "host/files/FrameFiles.h"
#include "scene_file/Mistakes.h"
#include "scene_file/TypeReference.h"

namespace orlix {

namespace {

Status WritePages(const TypeRegistry& types, const std::string& folder) {
  if (Status created = CreateFolders(folder); !created.ok()) return created;
  for (const auto& [name, text] : MarkdownPages(types)) {
    if (Status written = WriteFileAtomically(std::filesystem::path(folder) / name, text); !written.ok()) return written;
  }
  return {};
}

}  // namespace

Status ParamsCommand(const Program& program, const ParamsOptions& options) {
  const TypeRegistry& types = program.engine.types;
  if (!options.markdown.empty()) return WritePages(types, options.markdown);
  if (options.schema) {
    fmt::print("{}", SceneSchema(types));
    return {};
  }
  const TypeInfo* type = nullptr;
  if (!options.type.empty()) {
    type = types.FindName(options.type);
    const std::string rows = type || program.options.json ? "" : RowsWith(types, options.type);
    if (!rows.empty()) {
      fmt::print("{}", rows);
      return {};
    }
    if (!type) {
      return Status::Fail(ErrorKind::Usage,
                          fmt::format("there is no type {}, and no row with it{}", Quoted(options.type),
                                      DidYouMean(types.NearestName(options.type))));
    }
  }
  if (program.options.json) {
    fmt::print("{}", TypesAsJson(types, type));
  } else {
    fmt::print("{}", type ? TypeTable(*type, options.all) : TypeList(types));
  }
  return {};
}

}  // namespace orlix
