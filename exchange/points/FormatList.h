#pragma once
// The readers and writers behind the table of formats, each in a file of its format's name.

#include "exchange/points/PointFormats.h"

namespace orlix {

Result<PointSet> ReadPly(const PointContent& content);
Status WritePly(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadTextPoints(const PointContent& content);
Status WriteTextPoints(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadBgeo(const PointContent& content);
Status WriteBgeo(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPrt(const PointContent& content);
Status WritePrt(const PointSet& set, const PointSink& sink);

}  // namespace orlix
