#include "host/geometry/PlyHeader.h"

#include <bit>
#include <utility>

namespace orlix {

namespace {

constexpr std::pair<const char*, PlyType> kTypeNames[] = {
    {"char", PlyType::Int8},      {"uchar", PlyType::UInt8},    {"short", PlyType::Int16},
    {"ushort", PlyType::UInt16},  {"int", PlyType::Int32},      {"uint", PlyType::UInt32},
    {"float", PlyType::Float32},  {"double", PlyType::Float64}, {"int8", PlyType::Int8},
    {"uint8", PlyType::UInt8},    {"int16", PlyType::Int16},    {"uint16", PlyType::UInt16},
    {"int32", PlyType::Int32},    {"uint32", PlyType::UInt32},  {"float32", PlyType::Float32},
    {"float64", PlyType::Float64}};

}  // namespace

std::optional<PlyType> PlyTypeOf(std::string_view word) {
  for (const auto& [name, type] : kTypeNames) {
    if (word == name) return type;
  }
  return {};
}

const char* NameOf(PlyType type) { return kTypeNames[static_cast<int>(type)].first; }

std::size_t SizeOf(PlyType type) {
  constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
  return kSizes[static_cast<int>(type)];
}

const char* NameOf(PlyFormat format) {
  return format == PlyFormat::Ascii ? "text" : format == PlyFormat::LittleEndian ? "binary" : "binary big-endian";
}

double PlyValueAt(const char* bytes, PlyType type, bool swapped) {
  std::uint64_t raw = 0;
  const std::size_t size = SizeOf(type);
  for (std::size_t i = 0; i < size; ++i) {
    raw |= std::uint64_t(static_cast<unsigned char>(bytes[swapped ? size - 1 - i : i])) << (8 * i);
  }
  switch (type) {
    case PlyType::Int8:
      return static_cast<std::int8_t>(raw);
    case PlyType::UInt8:
    case PlyType::UInt16:
    case PlyType::UInt32:
      return static_cast<double>(raw);
    case PlyType::Int16:
      return static_cast<std::int16_t>(raw);
    case PlyType::Int32:
      return static_cast<std::int32_t>(raw);
    case PlyType::Float32:
      return std::bit_cast<float>(static_cast<std::uint32_t>(raw));
    case PlyType::Float64:
      break;
  }
  return std::bit_cast<double>(raw);
}

int PlyElement::IndexOf(std::string_view property) const {
  for (std::size_t i = 0; i < properties.size(); ++i) {
    if (properties[i].name == property) return static_cast<int>(i);
  }
  return -1;
}

std::size_t PlyElement::LeastBytes(PlyFormat format) const {
  std::size_t bytes = 0;
  for (const PlyProperty& p : properties) {
    bytes += format == PlyFormat::Ascii ? 1 : SizeOf(p.countType.value_or(p.type));
  }
  return bytes;
}

namespace {

std::string_view NextWord(TextCursor& words) {
  words.SkipBlanks();
  return words.Word();
}

class HeaderReader {
 public:
  HeaderReader(TextCursor& text, std::string_view file) : text_(text), file_(file) {}

  PlyHeader header;

  Status Read() {
    if (text_.Line() != "ply") return Fail(begin_, "a PLY file begins with the line \"ply\"");
    bool hasFormat = false;
    for (;;) {
      if (text_.AtEnd()) return Fail(text_.Place(), "the header has no end");
      const char* line = text_.Place();
      TextCursor words(text_.Line());
      const std::string_view key = NextWord(words);
      if (key == "end_header") break;
      if (key == "format") {
        if (Status status = ReadFormat(line, words); !status) return status;
        hasFormat = true;
      } else if (key == "element") {
        if (Status status = ReadElementLine(line, words); !status) return status;
      } else if (key == "property") {
        if (Status status = ReadPropertyLine(line, words); !status) return status;
      } else if (key != "comment" && key != "obj_info" && !key.empty()) {
        return Fail(line, fmt::format("unknown header line \"{}\"", key.substr(0, 40)));
      }
    }
    if (!hasFormat) return Fail(begin_, "the header names no format");
    return {};
  }

 private:
  Status Fail(const char* place, std::string_view what) const {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}:{}: {}", file_, text_.LineOf(place), what));
  }

  Status ReadFormat(const char* line, TextCursor& words) {
    const std::string_view word = NextWord(words), version = NextWord(words);
    if (word == "ascii") {
      header.format = PlyFormat::Ascii;
    } else if (word == "binary_little_endian") {
      header.format = PlyFormat::LittleEndian;
    } else if (word == "binary_big_endian") {
      header.format = PlyFormat::BigEndian;
    } else {
      return Fail(line, "the format must be ascii, binary_little_endian or binary_big_endian");
    }
    if (version == "1.0") return {};
    return Fail(line, fmt::format("the version is {}, must be 1.0", version.substr(0, 40)));
  }

  Status ReadElementLine(const char* line, TextCursor& words) {
    PlyElement element;
    element.name = NextWord(words);
    std::int64_t count = -1;
    words.SkipBlanks();
    if (element.name.empty() || !words.Integer(count) || count < 0) {
      return Fail(line, "an element needs a name and a count");
    }
    element.count = static_cast<std::uint64_t>(count);
    header.elements.push_back(std::move(element));
    return {};
  }

  Status ReadPropertyLine(const char* line, TextCursor& words) {
    if (header.elements.empty()) return Fail(line, "a property stands before any element");
    PlyProperty property;
    std::string_view word = NextWord(words);
    if (word == "list") {
      property.countType = PlyTypeOf(NextWord(words));
      if (!property.countType || SizeOf(*property.countType) == 8 || *property.countType == PlyType::Float32) {
        return Fail(line, "a list's count must be of a whole type");
      }
      word = NextWord(words);
    }
    const auto type = PlyTypeOf(word);
    property.name = NextWord(words);
    if (!type || property.name.empty()) return Fail(line, "a property needs a type and a name");
    property.type = *type;
    header.elements.back().properties.push_back(property);
    return {};
  }

  TextCursor& text_;
  const char* begin_ = text_.Place();
  std::string_view file_;
};

}  // namespace

Result<PlyHeader> PlyHeader::Read(TextCursor& text, std::string_view file) {
  HeaderReader reader(text, file);
  if (Status status = reader.Read(); !status) return status.error();
  return std::move(reader.header);
}

Status PlyHeader::TestCount(const PlyElement& element, const TextCursor& text, std::string_view file) const {
  const std::size_t least = element.LeastBytes(format);
  // The last value of a text needs no blank after it.
  const std::size_t each = format == PlyFormat::Ascii ? 2 * least : least;
  if (least == 0 || element.count <= (text.Remaining() + 1) / each) return {};
  return Status::Fail(ErrorKind::InputFile,
                      fmt::format("{}: {} elements \"{}\" need at least {} bytes each, {} bytes follow", file,
                                  element.count, element.name, each, text.Remaining()));
}

}  // namespace orlix
