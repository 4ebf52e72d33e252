#include "host/pictures/PictureFile.h"

#include <algorithm>
#include <array>
#include <new>

#include "host/files/AtomicStream.h"
#include "host/files/ByteSource.h"
#include "host/pictures/ExrFile.h"
#include "host/pictures/PngFile.h"

namespace orlix {

namespace {

constexpr std::uint64_t kMaxFileBytes = std::uint64_t(1) << 33;

enum class Format { Unknown, Exr, Png };

Format FormatOf(std::span<const std::byte> file) {
  const auto begins = [&](std::initializer_list<unsigned char> magic) {
    return file.size() >= magic.size() &&
           std::equal(magic.begin(), magic.end(), file.begin(), [](auto a, auto b) { return std::byte(a) == b; });
  };
  if (begins({0x76, 0x2f, 0x31, 0x01})) return Format::Exr;
  if (begins({0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a})) return Format::Png;
  return Format::Unknown;
}

struct ReadResult {
  Format format;
  Picture picture;
  std::string toneMap;
};

Result<ReadResult> ReadAny(const std::filesystem::path& path) {
  const auto fail = [&](ErrorKind kind, const std::string& what) {
    return Result<ReadResult>::Fail(kind, path.string() + ": " + what);
  };
  const Result<FileBytes> bytes = ReadWholeFile(path, kMaxFileBytes);
  if (!bytes) return bytes.error();
  const Format format = FormatOf(*bytes);
  if (format == Format::Unknown) return fail(ErrorKind::InputFile, "neither an OpenEXR nor a PNG picture");
  try {
    std::string toneMap = format == Format::Exr ? "none, linear light" : "";
    Result<Picture> picture = format == Format::Exr ? ReadExr(*bytes) : ReadPng(*bytes, &toneMap);
    if (!picture) return fail(picture.error().kind, picture.error().text);
    return ReadResult{format, std::move(*picture), std::move(toneMap)};
  } catch (const std::bad_alloc&) {
    return fail(ErrorKind::Memory, "no memory for the picture");
  }
}

std::string LowerExtension(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
  });
  return extension;
}

}  // namespace

Status WritePicture(const std::filesystem::path& path, const Picture& picture, const PictureView& view) {
  const std::string extension = LowerExtension(path);
  if (extension != ".exr" && extension != ".png") {
    return Status::Fail(ErrorKind::Usage, path.string() + ": pictures end in .exr or .png");
  }
  AtomicStream stream;
  if (Status s = stream.Open(path); !s) return s;
  const Status written = extension == ".exr" ? WriteExr(picture, stream) : WritePng(picture, view, stream);
  // The stream knows the file and the reason where it was the disk that refused.
  if (!written)
    return stream.status().ok() ? Status::Fail(written.error().kind, path.string() + ": " + written.error().text)
                                : stream.status();
  return stream.Commit();
}

Result<Picture> ReadPicture(const std::filesystem::path& path) {
  Result<ReadResult> read = ReadAny(path);
  if (!read) return read.error();
  return std::move(read->picture);
}

Result<PictureInfo> DescribePicture(const std::filesystem::path& path) {
  const Result<ReadResult> read = ReadAny(path);
  if (!read) return read.error();
  return PictureInfo{read->format == Format::Exr ? "OpenEXR" : "PNG", read->picture.width(), read->picture.height(),
                     RangesOf(read->picture), read->toneMap};
}

}  // namespace orlix
