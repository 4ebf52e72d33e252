#include "host/pictures/ExrFile.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <mutex>
#include <vector>

namespace orlix {

namespace {

constexpr int kLinesAtATime = 64;
constexpr int kMaxTileSide = 4096;

// Where a slice would begin if it began at pixel (0, 0): the library adds the place of each pixel. Such an address may
// lie outside of any memory, so that it is worked out as a number.
char* SliceBase(void* memory, std::int64_t pixels, std::size_t pixelBytes) {
  return reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(memory) -
                                 static_cast<std::uintptr_t>(pixels) * pixelBytes);
}

class StreamOut : public Imf::OStream {
 public:
  explicit StreamOut(std::ostream& stream) : Imf::OStream("picture"), stream_(stream) {}
  void write(const char bytes[], int size) override {
    if (!stream_.write(bytes, size)) throw std::runtime_error("the stream refuses more bytes");
  }
  std::uint64_t tellp() override { return static_cast<std::uint64_t>(std::streamoff(stream_.tellp())); }
  void seekp(std::uint64_t position) override {
    if (!stream_.seekp(static_cast<std::streamoff>(position))) throw std::runtime_error("the stream can't seek");
  }

 private:
  std::ostream& stream_;
};

class MemoryIn : public Imf::IStream {
 public:
  explicit MemoryIn(std::span<const std::byte> bytes) : Imf::IStream("picture"), bytes_(bytes) {}
  bool read(char target[], int size) override {
    if (size < 0 || position_ > bytes_.size() || static_cast<std::size_t>(size) > bytes_.size() - position_) {
      throw std::runtime_error("the file ends too early");
    }
    std::memcpy(target, bytes_.data() + position_, static_cast<std::size_t>(size));
    position_ += static_cast<std::size_t>(size);
    return position_ < bytes_.size();
  }
  std::uint64_t tellg() override { return position_; }
  void seekg(std::uint64_t position) override { position_ = position; }
  void clear() override {}

 private:
  std::span<const std::byte> bytes_;
  std::uint64_t position_ = 0;
};

std::uint16_t HalfBits(float value) {
  const float largest = HALF_MAX;
  return half(std::isnan(value) ? 0.0f : std::clamp(value, -largest, largest)).bits();
}

Status OutputError(const char* what) {
  return Status::Fail(ErrorKind::Output, fmt::format("the OpenEXR picture can't be written: {}", what));
}

Result<Picture> InputError(const std::string& what) {
  return Result<Picture>::Fail(ErrorKind::InputFile, "not a usable OpenEXR picture: " + what);
}

// Some lines of all channels in the types of the file.
class LineBuffer {
 public:
  LineBuffer(const Picture& picture, int lines) : picture_(picture) {
    const std::size_t size = static_cast<std::size_t>(picture.width()) * static_cast<std::size_t>(lines);
    for (const PictureChannel& channel : picture.channels()) bytes_.emplace_back(size * BytesOf(channel));
  }
  static std::size_t BytesOf(const PictureChannel& channel) { return channel.single ? 4 : 2; }

  // Slices for lines from firstLine on.
  Imf::FrameBuffer Frame(int firstLine) {
    Imf::FrameBuffer frame;
    for (std::size_t c = 0; c < bytes_.size(); ++c) {
      const PictureChannel& channel = picture_.channels()[c];
      const std::size_t x = BytesOf(channel), y = x * static_cast<std::size_t>(picture_.width());
      const std::int64_t skipped =
          std::int64_t(picture_.width()) * (picture_.part.top + firstLine) + picture_.part.left;
      char* const base = SliceBase(bytes_[c].data(), skipped, x);
      frame.insert(channel.name, Imf::Slice(channel.single ? Imf::FLOAT : Imf::HALF, base, x, y));
    }
    return frame;
  }

  void Fill(int firstLine, int lines) {
    for (std::size_t c = 0; c < bytes_.size(); ++c) {
      const PictureChannel& channel = picture_.channels()[c];
      const std::size_t width = static_cast<std::size_t>(picture_.width());
      const float* from = channel.values.data() + width * static_cast<std::size_t>(firstLine);
      for (std::size_t i = 0; i < width * static_cast<std::size_t>(lines); ++i) {
        if (channel.single) {
          const float value = std::isnan(from[i]) ? 0.0f : from[i];
          std::memcpy(bytes_[c].data() + 4 * i, &value, 4);
        } else {
          const std::uint16_t bits = HalfBits(from[i]);
          std::memcpy(bytes_[c].data() + 2 * i, &bits, 2);
        }
      }
    }
  }

 private:
  const Picture& picture_;
  std::vector<std::vector<char>> bytes_;
};

// A name may stand once in a file, and an empty one not at all.
bool HasGoodNames(const Picture& picture) {
  for (const PictureChannel& channel : picture.channels()) {
    if (channel.name.empty() || picture.Find(channel.name) != &channel) return false;
  }
  return !picture.channels().empty();
}

Result<Picture> ReadParts(std::span<const std::byte> bytes) {
  // A limit that the library checks before it takes memory by what a header says.
  static std::once_flag limited;
  std::call_once(limited, [] {
    Imf::Header::setMaxImageSize(kMaxPictureSide, kMaxPictureSide);
    Imf::Header::setMaxTileSize(kMaxTileSide, kMaxTileSide);
  });
  MemoryIn stream(bytes);
  Imf::InputFile file(stream, 0);
  const Imath::Box2i window = file.header().dataWindow();
  const std::int64_t width = std::int64_t(window.max.x) - window.min.x + 1;
  const std::int64_t height = std::int64_t(window.max.y) - window.min.y + 1;
  if (Status s = CheckPictureSize(width, height); !s) return InputError(s.error().text);

  Picture picture(static_cast<int>(width), static_cast<int>(height));
  std::vector<std::string> names;
  for (auto it = file.header().channels().begin(); it != file.header().channels().end(); ++it) {
    if (it.channel().xSampling != 1 || it.channel().ySampling != 1) return InputError("its channels are sampled");
    names.emplace_back(it.name());
  }
  if (names.empty() || names.size() > kMaxExrChannels) return InputError("it has no or too many channels");

  // Planes grow as lines arrive, so that a header alone can't take their memory.
  std::vector<std::vector<float>> planes(names.size());
  const auto lineSize = static_cast<std::size_t>(width);
  for (std::int64_t first = 0; first < height; first += kLinesAtATime) {
    const std::int64_t count = std::min<std::int64_t>(kLinesAtATime, height - first);
    std::vector<std::vector<float>> buffers(names.size(),
                                            std::vector<float>(lineSize * static_cast<std::size_t>(count)));
    Imf::FrameBuffer frame;
    for (std::size_t c = 0; c < names.size(); ++c) {
      const std::int64_t skipped = (window.min.y + first) * width + window.min.x;
      char* const base = SliceBase(buffers[c].data(), skipped, sizeof(float));
      frame.insert(names[c], Imf::Slice(Imf::FLOAT, base, 4, lineSize * 4));
    }
    file.setFrameBuffer(frame);
    file.readPixels(static_cast<int>(window.min.y + first), static_cast<int>(window.min.y + first + count - 1));
    for (std::size_t c = 0; c < names.size(); ++c) {
      planes[c].insert(planes[c].end(), buffers[c].begin(), buffers[c].end());
    }
  }
  for (std::size_t c = 0; c < names.size(); ++c) {
    const Imf::Channel* channel = file.header().channels().findChannel(names[c]);
    picture.AddChannel({names[c], channel->type != Imf::HALF, std::move(planes[c])});
  }
  return picture;
}

}  // namespace

Status WriteExr(const Picture& picture, std::ostream& stream) {
  if (picture.width() < 1 || picture.height() < 1 || !HasGoodNames(picture)) {
    return OutputError("it has no size, no channels, or names that stand twice");
  }
  try {
    Imf::Header header(picture.width(), picture.height());
    if (const PicturePart& part = picture.part; part.wholeWidth > 0) {
      header.dataWindow() = {{part.left, part.top}, {part.left + picture.width() - 1, part.top + picture.height() - 1}};
      header.displayWindow() = {{0, 0}, {part.wholeWidth - 1, part.wholeHeight - 1}};
    }
    header.compression() = Imf::ZIP_COMPRESSION;
    for (const PictureChannel& channel : picture.channels()) {
      header.channels().insert(channel.name, Imf::Channel(channel.single ? Imf::FLOAT : Imf::HALF));
    }
    StreamOut out(stream);
    {
      Imf::OutputFile file(out, header, 0);
      LineBuffer buffer(picture, std::min(kLinesAtATime, picture.height()));
      for (int first = 0; first < picture.height(); first += kLinesAtATime) {
        const int lines = std::min(kLinesAtATime, picture.height() - first);
        buffer.Fill(first, lines);
        file.setFrameBuffer(buffer.Frame(first));
        file.writePixels(lines);
      }
    }
    return stream.flush() ? Status() : OutputError("the stream has failed");
  } catch (const std::exception& e) {
    return OutputError(e.what());
  }
}

Result<Picture> ReadExr(std::span<const std::byte> file) {
  try {
    return ReadParts(file);
  } catch (const std::exception& e) {
    return InputError(e.what());
  }
}

}  // namespace orlix
