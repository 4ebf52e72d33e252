#include "host/pictures/PngFile.h"

#include <fmt/format.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "host/pictures/Srgb.h"

namespace orlix {

namespace {

// libpng reports an error by a jump back to where it was called from. Functions below that call it keep nothing that
// has a destructor on their own frame; what they need is here.
struct Reading {
  std::span<const std::byte> file;
  std::size_t position = 0;
  std::string error;
  png_structp png = nullptr;
  png_infop info = nullptr;
  png_uint_32 width = 0, height = 0;
  std::vector<png_byte> row;
  std::vector<float> planes[4];
  std::array<float, 256> linear;
  ~Reading() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct Writing {
  std::ostream* stream = nullptr;
  std::string error;
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::vector<png_byte> row;
  ~Writing() { png_destroy_write_struct(&png, &info); }
};

void KeepWarningQuiet(png_structp, png_const_charp) {}

[[noreturn]] void ReadingFailed(png_structp png, png_const_charp text) {
  static_cast<Reading*>(png_get_error_ptr(png))->error = text;
  png_longjmp(png, 1);
}
[[noreturn]] void WritingFailed(png_structp png, png_const_charp text) {
  static_cast<Writing*>(png_get_error_ptr(png))->error = text;
  png_longjmp(png, 1);
}

void ReadBytes(png_structp png, png_bytep target, png_size_t size) {
  auto& reading = *static_cast<Reading*>(png_get_io_ptr(png));
  if (size > reading.file.size() - reading.position) png_error(png, "the file ends too early");
  std::memcpy(target, reading.file.data() + reading.position, size);
  reading.position += size;
}
void WriteBytes(png_structp png, png_bytep bytes, png_size_t size) {
  std::ostream& stream = *static_cast<Writing*>(png_get_io_ptr(png))->stream;
  if (!stream.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size))) {
    png_error(png, "the stream refuses more bytes");
  }
}
void FlushNothing(png_structp) {}

// The header, with everything turned into RGBA of 8 bits.
bool ReadHeader(Reading& r) {
  if (setjmp(png_jmpbuf(r.png))) return false;
  png_set_read_fn(r.png, &r, ReadBytes);
  png_set_user_limits(r.png, kMaxPictureSide, kMaxPictureSide);
  png_read_info(r.png, r.info);
  r.width = png_get_image_width(r.png, r.info), r.height = png_get_image_height(r.png, r.info);
  png_set_expand(r.png);
  png_set_strip_16(r.png);
  png_set_gray_to_rgb(r.png);
  png_set_add_alpha(r.png, 0xff, PNG_FILLER_AFTER);
  if (png_get_interlace_type(r.png, r.info) != PNG_INTERLACE_NONE) png_error(r.png, "interlaced pictures aren't read");
  png_read_update_info(r.png, r.info);
  return png_get_rowbytes(r.png, r.info) == static_cast<std::size_t>(r.width) * 4;
}

// The text of the chunk that WriteHeader makes, as far as it can be printed; empty without one.
std::string ToneMapOf(const Reading& r) {
  png_textp chunks = nullptr;
  const int count = png_get_text(r.png, r.info, &chunks, nullptr);
  std::string text;
  for (int n = 0; n < count; ++n) {
    if (!chunks[n].text || std::string_view(chunks[n].key) != "Tone map") continue;
    constexpr std::size_t kLongest = 80;
    for (const char c : std::string_view(chunks[n].text).substr(0, kLongest)) {
      if (c >= ' ' && c <= '~') text += c;
    }
  }
  return text;
}

bool ReadRow(Reading& r) {
  if (setjmp(png_jmpbuf(r.png))) return false;
  png_read_row(r.png, r.row.data(), nullptr);
  return true;
}

bool ReadEnd(Reading& r) {
  if (setjmp(png_jmpbuf(r.png))) return false;
  png_read_end(r.png, nullptr);
  return true;
}

Result<Picture> InputError(const Reading& reading) {
  return Result<Picture>::Fail(
      ErrorKind::InputFile,
      "not a usable PNG picture: " + (reading.error.empty() ? "its header is broken" : reading.error));
}

// How far the deflate of a PNG can shrink its bytes (RFC 1951: 258 bytes for 2 bits).
constexpr std::uint64_t kMostDeflated = 1032;

// text: how light became values, which no other chunk says.
bool WriteHeader(Writing& w, png_uint_32 width, png_uint_32 height, bool alpha, char* text) {
  if (setjmp(png_jmpbuf(w.png))) return false;
  png_set_write_fn(w.png, &w, WriteBytes, FlushNothing);
  png_set_IHDR(w.png, w.info, width, height, 8, alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_sRGB(w.png, w.info, PNG_sRGB_INTENT_PERCEPTUAL);
  char key[] = "Tone map";
  png_text chunk{};
  chunk.compression = PNG_TEXT_COMPRESSION_NONE;
  chunk.key = key, chunk.text = text, chunk.text_length = std::strlen(text);
  png_set_text(w.png, w.info, &chunk, 1);
  png_write_info(w.png, w.info);
  return true;
}

bool WriteRow(Writing& w) {
  if (setjmp(png_jmpbuf(w.png))) return false;
  png_write_row(w.png, w.row.data());
  return true;
}

bool WriteEnd(Writing& w) {
  if (setjmp(png_jmpbuf(w.png))) return false;
  png_write_end(w.png, nullptr);
  return true;
}

// dither: within a step, from -0.5 to 0.5.
png_byte Quantised(double v, double dither = 0) {
  return static_cast<png_byte>(std::isnan(v) ? 0 : std::clamp(v, 0.0, 1.0) * 255 + 0.5 + dither);
}

// Gradients of a sky would show the steps of 8 bits as bands: neighbours round in different ways (interleaved gradient
// noise, Jimenez 2014).
double Dither(std::size_t x, std::size_t y) {
  const double inner = 0.06711056 * static_cast<double>(x) + 0.00583715 * static_cast<double>(y);
  const double outer = 52.9829189 * (inner - std::floor(inner));
  return 0.98 * (outer - std::floor(outer) - 0.5);
}

struct ColourPlanes {
  const float *r, *g, *b, *a;  // a is null in a picture without transparency
};

void FillRow(const ColourPlanes& planes, std::size_t first, int width, const PictureView& view,
             std::vector<png_byte>& row) {
  const double scale = std::exp2(view.exposure);
  png_byte* out = row.data();
  for (std::size_t i = first; i < first + static_cast<std::size_t>(width); ++i) {
    const double alpha = planes.a ? planes.a[i] : 1.0;
    const double factor = planes.a ? (alpha > 0 ? scale / alpha : 0.0) : scale;
    const double dither =
        view.transform == ViewTransform::Filmic ? Dither(i - first, first / static_cast<std::size_t>(width)) : 0;
    for (const float* plane : {planes.r, planes.g, planes.b})
      *out++ = Quantised(Displayed(plane[i] * factor, view.transform), dither);
    if (planes.a) *out++ = Quantised(alpha);
  }
}

Result<Picture> ReadRows(Reading& r) {
  r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, ReadingFailed, KeepWarningQuiet);
  r.info = r.png ? png_create_info_struct(r.png) : nullptr;
  if (!r.info) return Result<Picture>::Fail(ErrorKind::Memory, "no memory for a PNG picture");
  if (!ReadHeader(r)) return InputError(r);
  if (Status s = CheckPictureSize(r.width, r.height); !s) return s.error();
  // At least one bit a pixel, so that a header alone can't take the memory of its claim.
  if (static_cast<std::uint64_t>(r.width) * r.height / 8 > r.file.size() * kMostDeflated) {
    r.error = fmt::format("{} bytes can't hold {} x {} pixels", r.file.size(), r.width, r.height);
    return InputError(r);
  }
  for (int v = 0; v < 256; ++v) r.linear[static_cast<std::size_t>(v)] = static_cast<float>(SrgbToLinear(v / 255.0));
  r.row.resize(static_cast<std::size_t>(r.width) * 4);
  bool opaque = true;
  for (png_uint_32 y = 0; y < r.height; ++y) {
    if (!ReadRow(r)) return InputError(r);
    for (std::size_t x = 0; x < r.width; ++x) {
      const png_byte* pixel = r.row.data() + 4 * x;
      const float alpha = static_cast<float>(pixel[3]) / 255.0f;
      opaque = opaque && pixel[3] == 255;
      for (std::size_t c = 0; c < 3; ++c) r.planes[c].push_back(r.linear[pixel[c]] * alpha);
      r.planes[3].push_back(alpha);
    }
  }
  if (!ReadEnd(r)) return InputError(r);
  Picture picture(static_cast<int>(r.width), static_cast<int>(r.height));
  const char* names[] = {"R", "G", "B", "A"};
  for (std::size_t c = 0; c < (opaque ? 3u : 4u); ++c) picture.AddChannel({names[c], false, std::move(r.planes[c])});
  return picture;
}

}  // namespace

Status WritePng(const Picture& picture, const PictureView& view, std::ostream& stream) {
  const auto fail = [](const std::string& what) {
    return Status::Fail(ErrorKind::Output, "the PNG picture can't be written: " + what);
  };
  const PictureChannel *r = picture.Find("R"), *g = picture.Find("G"), *b = picture.Find("B"), *a = picture.Find("A");
  if (!r || !g || !b || picture.width() < 1 || picture.height() < 1) return fail("it has no size or no colours");
  const bool opaque = !a || std::all_of(a->values.begin(), a->values.end(), [](float v) { return v >= 1; });
  const ColourPlanes planes{r->values.data(), g->values.data(), b->values.data(), opaque ? nullptr : a->values.data()};

  Writing w;
  w.stream = &stream;
  w.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &w, WritingFailed, KeepWarningQuiet);
  w.info = w.png ? png_create_info_struct(w.png) : nullptr;
  if (!w.info) return fail("no memory");
  std::string toneMap = fmt::format("{}, exposure {:g} stops", NameOf(view.transform), view.exposure);
  bool good = WriteHeader(w, static_cast<png_uint_32>(picture.width()), static_cast<png_uint_32>(picture.height()),
                          !opaque, toneMap.data());
  w.row.resize(static_cast<std::size_t>(picture.width()) * (opaque ? 3 : 4));
  for (int y = 0; good && y < picture.height(); ++y) {
    const std::size_t first = static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width());
    FillRow(planes, first, picture.width(), view, w.row);
    good = WriteRow(w);
  }
  good = good && WriteEnd(w);
  if (!good) return fail(w.error);
  return stream.flush() ? Status() : fail("the stream has failed");
}

Result<Picture> ReadPng(std::span<const std::byte> file, std::string* toneMap) {
  Reading reading;
  reading.file = file;
  try {
    Result<Picture> picture = ReadRows(reading);
    if (picture && toneMap) *toneMap = ToneMapOf(reading);
    return picture;
  } catch (const std::bad_alloc&) {
    return Result<Picture>::Fail(ErrorKind::Memory, "no memory for a PNG picture");
  }
}

}  // namespace orlix
