#pragma once
// Pictures of frames: surfaces, lights and gas, by the scene's render settings.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "fluids/volume_renderer/GasMaterial.h"
#include "globals/Result.h"
#include "host/render/Renderer.h"
#include "run/FrameListener.h"
#include "run/PictureWork.h"

namespace orlix {

// What a camera of our own choice sees; nothing while low lies above high.
struct FramedBox {
  Vec3D low{1, 1, 1}, high{0, 0, 0};
  double density = 0;  // the mean of the gas where there is some, of the frame in which that is most
  bool Empty() const { return low.x > high.x; }
  void Add(const Vec3D& point) {
    const bool first = Empty();
    low = first ? point : Min(low, point), high = first ? point : Max(high, point);
  }
};

struct PictureOptions {
  int width = 0, height = 0;          // instead of the settings', where above 0
  int samples = 0;                    // likewise; of all pixels
  PictureCrop crop{};                 // a part of the picture, where it isn't empty
  const PictureWork* work = nullptr;  // keeps what is done of a picture that is broken off, and goes on with it
  std::function<void(const RenderProgress&)> onProgress{};
  bool slices = false;                  // a quick look at the grids instead of a picture
  FramedBox box{};                      // instead of that of the frame's own gas and particles, where it isn't empty
  std::optional<ViewTransform> view{};  // instead of the settings'
};

class PictureMaker {
 public:
  PictureMaker(PictureOptions options, const BaseThread* thread) : options_(options), thread_(thread) {}

  // Makes the picture of the frame as it stands and writes it into folders that exist: OpenEXR, PNG or both.
  Status Make(const RunState& state, const std::vector<std::filesystem::path>& folders);
  const RenderReport& report() const { return report_; }
  // Warns where pictures were made and none of them showed gas because there never was any.
  void TellEmpty(const RunState& state) const;
  const std::vector<std::filesystem::path>& written() const { return written_; }

 private:
  Status MakeSlices(const RunState& state, const std::vector<std::filesystem::path>& folders);
  Status Render(const RunState& state, const std::vector<std::filesystem::path>& folders);
  void TellUnseen(const RunState& state, const std::vector<std::unique_ptr<GasMaterial>>& materials);
  Status Write(const Picture& picture, const std::filesystem::path& path, const PictureView& view = {});

  PictureOptions options_;
  std::string emptyMaterial_;  // a gas material whose channels were empty in every picture; empty when one wasn't
  bool hadGas_ = false;
  const BaseThread* thread_;
  RenderReport report_;
  std::vector<std::filesystem::path> written_;
};

}  // namespace orlix
