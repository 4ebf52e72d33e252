#pragma once
// Puts the objects of scene files into a document: sections, includes, names. See SceneReader.h for the format.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scene_file/JsonValue.h"
#include "scene_file/ParameterReader.h"
#include "scene_file/SceneReader.h"
#include "scene_file/SwitchedOff.h"

namespace orlix {

class SceneBuilder {
 public:
  SceneBuilder(BaseDocument& document, Mistakes& mistakes, LoadText load);

  // The main file first; the files that it includes follow by themselves. The source's text is cleaned in place.
  void ReadFile(const std::shared_ptr<SourceText>& source);
  // After the last file: names for the objects that have none. From then on links can be resolved.
  void NameTheUnnamed();

  ParameterReader& parameters() { return parameters_; }
  SwitchedOff& switchedOff() { return off_; }
  std::vector<std::string> TakeFiles() { return std::move(files_); }

 private:
  using Source = std::shared_ptr<const SourceText>;
  struct Section;
  static const Section kSections[];

  BaseDocument& document_;
  Mistakes& mistakes_;
  LoadText load_;
  ParameterReader parameters_;
  SwitchedOff off_;
  std::vector<std::string> files_;
  std::vector<std::string> open_, done_;  // identities of the files on the way down, and of those that were read
  std::map<std::pair<const BaseObject*, std::string>, Place> names_;  // by parent
  std::vector<BaseObject*> unnamed_;
  std::size_t objectCount_ = 0;
  bool hasFps_ = false;
  std::optional<std::pair<int, int>> frames_;

  void Complain(const Source& source, std::uint32_t offset, std::string text);
  void ReadTop(const Source& source, const JsonValue& top);
  void ReadSettings(const Source& source, const JsonValue& top);
  void ReadFps(const Source& source, const JsonValue& value);
  void ReadFrames(const Source& source, const JsonValue& value);
  void ReadIncludes(const Source& source, const JsonValue& value);
  void Include(const Source& source, const JsonValue& value);
  void ReadSection(const Source& source, const Section& section, const JsonValue& value);
  void ReadEntries(const Source& source, const Section& section, const JsonValue& list, BaseObject* parent, bool tags);
  void ReadEntry(const Source& source, const Section& section, const JsonValue& entry, BaseObject* parent, bool tag);
  const TypeInfo* ReadType(const Source& source, const Section& section, const JsonValue& entry, bool tag);
  void ReadName(const Source& source, const JsonValue& entry, BaseObject& object);
};

}  // namespace orlix
