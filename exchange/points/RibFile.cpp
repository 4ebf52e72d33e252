// RenderMan's scene description, written only: one "Points" with all particles. Radii become widths.

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

Status WriteRib(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  const SimpleColumns columns(set);
  std::string text = "##RenderMan RIB\n";
  if (set.units.metresPerUnit > 0) {
    text += fmt::format("# a unit is {} m, {} is up\n", set.units.metresPerUnit, set.units.upZ ? 'z' : 'y');
  }
  text += "AttributeBegin\nPoints";
  for (const PointAttribute* column : columns.all) {
    const bool radius = column->name == "radius" && column->components == 1;
    const std::string type = column->components == 1 ? "float" : column->name == "color" ? "color" : "vector";
    text += column->name == "position" ? " \"P\" ["
            : radius                   ? " \"varying float width\" ["
            : column->name == "color"  ? " \"varying color Cs\" ["
                                       : fmt::format(" \"varying {} {}\" [", type, column->name);
    for (std::uint64_t row = 0; row < set.count; ++row) {
      text += ' ';
      if (radius) {
        fmt::format_to(std::back_inserter(text), "{}", static_cast<float>(2 * column->Real(row, 0)));
      } else {
        AppendValues(*column, row, " ", text);
      }
      if (row % 16 == 15) text += '\n';
      FlushText(text, sink.out);
    }
    text += " ]\n";
  }
  text += "AttributeEnd\n";
  FlushText(text, sink.out, 0);
  return {};
}

}  // namespace orlix
