#pragma once
// Files of particles, by extension. Each format is a file of its own with a reader, a writer or both, and a line in the
// table of PointFormats.cpp. A file may be packed by gzip: it is recognised when read, written where the name ends in
// .gz or packing is asked for.
//
// Files are not trusted. Counts in headers are held against the bytes that are there before memory is taken, values
// must be finite numbers of their type, and every error names the file.

#include <filesystem>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "exchange/points/PointSet.h"
#include "globals/Result.h"
#include "host/files/ByteSource.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// The content of a file; both views outlive the reading.
struct PointContent {
  std::string_view bytes;
  std::string_view name;  // for messages
  // Columns and, where the header tells it, their count; values need not be read.
  bool headersOnly = false;
};

// Where a writer leaves its bytes. The stream's state tells whether they were taken.
struct PointSink {
  std::ostream& out;
  WorkerPool* pool = nullptr;  // packs on all workers; the bytes don't depend on it
};

struct PointFormat {
  const char* extension;  // with the dot, lower case
  const char* label;
  Result<PointSet> (*read)(const PointContent& content);        // null for a format that is only written
  Status (*write)(const PointSet& set, const PointSink& sink);  // null for one that is only read
  const char* keeps = nullptr;                                  // the columns that it has a place for; null for all
};
std::span<const PointFormat> PointFormats();

// By the name's ending, upper or lower case, with or without .gz behind it. Null for any other.
const PointFormat* FindPointFormat(const std::filesystem::path& path);
bool EndsInGz(const std::filesystem::path& path);

// Usage, for a format that nothing here reads or writes; else InputFile or Output by the file's name.
Result<PointSet> ReadPoints(const std::filesystem::path& path, bool headersOnly = false);
// The content of a file, packed or not, in the format given.
Result<PointSet> ParsePoints(std::string_view bytes, const PointFormat& format, std::string_view name,
                             bool headersOnly = false);
// To a temporary name first, so that the path holds the old file, the whole new one or nothing.
Status WritePoints(const std::filesystem::path& path, const PointSet& set, bool packed = false,
                   WorkerPool* pool = nullptr);

// The content of a file on disk, refused beyond 64 GB.
Result<FileBytes> ReadPointFile(const std::filesystem::path& path);
// Whether the content is that of a PLY file without faces, and so of particles.
bool IsPointPly(std::string_view content);

}  // namespace orlix
