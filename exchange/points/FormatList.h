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
Result<PointSet> ReadGeo(const PointContent& content);
Status WriteGeo(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPdb32(const PointContent& content);
Status WritePdb32(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPdb64(const PointContent& content);
Status WritePdb64(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPda(const PointContent& content);
Status WritePda(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPdc(const PointContent& content);
Status WritePdc(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadMc(const PointContent& content);
Status WriteMc(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPtc(const PointContent& content);
Status WritePtc(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPrt(const PointContent& content);
Status WritePrt(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadBin(const PointContent& content);
Status WriteBin(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadXyz(const PointContent& content);
Status WriteXyz(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPcd(const PointContent& content);
Status WritePcd(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadIcecache(const PointContent& content);
Status WriteIcecache(const PointSet& set, const PointSink& sink);
Result<PointSet> ReadPdbAny(const PointContent& content);
Result<PointSet> ReadPts(const PointContent& content);
Status WriteRib(const PointSet& set, const PointSink& sink);

}  // namespace orlix
