// orlix sheet DIR: a folder's pictures on one, small and with their numbers.

#include <fmt/format.h>

#include <algorithm>

#include "apps/orlix/Command.h"
#include "apps/orlix/PictureSequence.h"
#include "host/pictures/Canvas.h"
#include "host/pictures/PictureFile.h"

namespace orlix {

namespace {

constexpr int kGap = 4;  // pixels between pictures
constexpr const char* kColours[] = {"R", "G", "B"};

// Each pixel is the mean of those that it covers.
void Shrink(const PictureChannel& from, int width, int height, PictureChannel& to, int toWidth, int left, int top,
            int wide, int high) {
  for (int y = 0; y < high; ++y) {
    const int y0 = static_cast<int>(std::int64_t(y) * height / high);
    const int y1 = std::max(y0 + 1, static_cast<int>(std::int64_t(y + 1) * height / high));
    for (int x = 0; x < wide; ++x) {
      const int x0 = static_cast<int>(std::int64_t(x) * width / wide);
      const int x1 = std::max(x0 + 1, static_cast<int>(std::int64_t(x + 1) * width / wide));
      double sum = 0;
      for (int j = y0; j < y1; ++j) {
        for (int i = x0; i < x1; ++i)
          sum +=
              from.values[static_cast<std::size_t>(j) * static_cast<std::size_t>(width) + static_cast<std::size_t>(i)];
      }
      to.values[static_cast<std::size_t>(top + y) * static_cast<std::size_t>(toWidth) +
                static_cast<std::size_t>(left + x)] = static_cast<float>(sum / (double(y1 - y0) * (x1 - x0)));
    }
  }
}

// At most so many of the files, evenly, the first and last among them.
std::vector<FrameFile> Chosen(const std::vector<FrameFile>& files, int most) {
  const std::size_t count = std::min(files.size(), static_cast<std::size_t>(most));
  std::vector<FrameFile> chosen;
  for (std::size_t n = 0; n < count; ++n) {
    chosen.push_back(files[count == 1 ? 0 : n * (files.size() - 1) / (count - 1)]);
  }
  return chosen;
}

}  // namespace

Status SheetCommand(const Program&, const SheetOptions& options) {
  const Result<PictureSequence> pictures = FindPictures(options.folder, options.name);
  if (!pictures) return pictures.error();
  const std::vector<FrameFile> chosen = Chosen(pictures->files, options.count);
  const Result<Picture> first = ReadPicture(chosen.front().path);
  if (!first) return first.error();
  const int wide = std::min(options.width, first->width());
  const int high = std::max(1, static_cast<int>(std::int64_t(wide) * first->height() / first->width()));
  const int count = static_cast<int>(chosen.size()), columns = std::min(options.columns, count);
  const int rows = (count + columns - 1) / columns;
  const int sheetWide = columns * (wide + kGap) + kGap, sheetHigh = rows * (high + kGap) + kGap;
  if (Status fits = CheckPictureSize(sheetWide, sheetHigh); !fits) return fits;
  Picture sheet(sheetWide, sheetHigh);
  for (const char* colour : kColours) sheet.AddChannel(colour);
  for (int n = 0; n < count; ++n) {
    const Result<Picture> picture = ReadPicture(chosen[static_cast<std::size_t>(n)].path);
    if (!picture) return picture.error();
    const int left = kGap + n % columns * (wide + kGap), top = kGap + n / columns * (high + kGap);
    for (const char* colour : kColours) {
      if (const PictureChannel* from = picture->Find(colour)) {
        Shrink(*from, picture->width(), picture->height(), *sheet.Find(colour), sheetWide, left, top, wide, high);
      }
    }
    Canvas canvas(sheet, wide >= 200 ? 2 : 1);
    const std::string number = std::to_string(chosen[static_cast<std::size_t>(n)].frame);
    for (int y = -2; y < canvas.TextHeight() + 2; ++y) {
      for (int x = -2; x < canvas.WidthOf(number); ++x) canvas.Set(left + 6 + x, top + 6 + y, Vec3D(0.1));
    }
    canvas.Text(left + 6, top + 6, number);
  }
  const std::string out = options.out.empty()
                              ? (std::filesystem::path(options.folder) / (pictures->name + "_sheet.png")).string()
                              : options.out;
  if (Status done = WritePicture(out, sheet, {0, ViewTransform::Srgb}); !done) return done;
  fmt::print("{}: {} of {} pictures \"{}\", {} x {} pixels\n", out, count, pictures->files.size(), pictures->name,
             sheetWide, sheetHigh);
  return {};
}

}  // namespace orlix
