#pragma once
// PNG pictures of 8 bits.

#include <cstddef>
#include <ostream>
#include <span>
#include <string>

#include "globals/Result.h"
#include "host/pictures/Picture.h"
#include "host/pictures/PictureView.h"

namespace orlix {

// Writes R, G and B through the view, which a text chunk "Tone map" names; with an alpha channel, which isn't
// premultiplied in such files, when the picture has one that is below 1 anywhere.
Status WritePng(const Picture& picture, const PictureView& view, std::ostream& stream);

// Reads any PNG as linear R, G, B and, where it has transparency, premultiplied with A. Files of more than
// kMaxPicturePixels, or with more pixels than their size could hold, are refused. toneMap: what the file says of its
// view, "filmic, exposure 0 stops", or nothing.
Result<Picture> ReadPng(std::span<const std::byte> file, std::string* toneMap = nullptr);

}  // namespace orlix
