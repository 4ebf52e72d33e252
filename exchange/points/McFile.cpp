// Maya's caches of one frame: chunks of IFF with 32-bit sizes, big-endian, padded to 4 bytes.
//
//   "FOR4" size "CACH"  "VRSN" 4 "0.1\0"  "STIM" 4 time  "ETIM" 4 time
//   "FOR4" size "MYCH"  then for each channel: "CHNM" length name, "SIZE" 4 count, and its values:
//   "FVCA" vectors of floats, "DVCA" vectors of doubles, "FBCA" floats, "DBLA" doubles
//
// A channel is called by its object and its attribute, with an underscore between.

#include <array>

#include "exchange/points/FormatList.h"
#include "exchange/points/MayaNames.h"

namespace orlix {

namespace {

constexpr std::size_t kToChannels = 56;

struct ArrayKind {
  std::string_view tag;
  int components;
  NumberType number;
};
constexpr ArrayKind kArrayKinds[] = {{"FVCA", 3, NumberType::Float32},
                                     {"DVCA", 3, NumberType::Float64},
                                     {"FBCA", 1, NumberType::Float32},
                                     {"DBLA", 1, NumberType::Float64}};

std::size_t Padded(std::size_t size) { return (size + 3) / 4 * 4; }

// "particleShape1_velocity" is the velocity.
std::string ChannelName(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  const std::size_t bar = text.rfind('_');
  return OurName(kMayaNames, bar == std::string_view::npos ? text : text.substr(bar + 1));
}

Status ReadChannelValues(const ArrayKind& kind, const std::string& name, std::string_view bytes, ByteCursor& in,
                         const PointContent& content, PointSet& set) {
  const std::size_t each = static_cast<std::size_t>(kind.components) * SizeOf(kind.number);
  if (name == "count") return {};  // of all, not of each
  if (!CanAdd(set, name)) return in.Fail("a channel has no usable name");
  if (bytes.size() % each != 0 || (!set.attributes.empty() && set.count != bytes.size() / each)) {
    return in.Fail(fmt::format("channel \"{}\" is of another count than the others", name.substr(0, 40)));
  }
  set.count = bytes.size() / each;
  const bool whole = name == "id";
  PointAttribute& column = set.Declare(name,
                                       whole                  ? PointType::Int
                                       : kind.components == 3 ? PointType::Vector
                                                              : PointType::Float,
                                       kind.components, whole ? NumberType::Int32 : kind.number);
  if (content.headersOnly) return {};
  column.values.resize(set.count * column.RowBytes());
  const ReadField field{&column, 0, {kind.number, true}};
  return ReadRecords(bytes.data(), each, set.count, {&field, 1}, content.name);
}

}  // namespace

Result<PointSet> ReadMc(const PointContent& content) {
  ByteCursor in(content, true);
  if (!in.Take(kToChannels).starts_with("FOR4") || in.Take(4) != "MYCH") return in.Fail("no Maya cache of one frame");
  PointSet set;
  std::string name;
  while (in.Remaining() >= 8) {
    const std::string_view tag = in.Take(4);
    const auto size = in.Get<std::uint32_t>();
    if (size > in.Remaining()) return in.Fail("a chunk is longer than the file");
    const std::string_view bytes = in.Take(size);
    in.Take(std::min(Padded(size) - size, in.Remaining()));
    if (tag == "CHNM") name = ChannelName(bytes);
    for (const ArrayKind& kind : kArrayKinds) {
      if (tag != kind.tag) continue;
      if (Status read = ReadChannelValues(kind, name, bytes, in, content, set); !read) return read.error();
    }
  }
  return set;
}

Status WriteMc(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  const SimpleColumns columns(set);
  constexpr std::uint64_t kMostBytes = std::numeric_limits<std::int32_t>::max();
  std::uint64_t size = 4;
  struct Channel {
    const PointAttribute* column;
    std::string name;
    ArrayKind kind;
    std::uint64_t bytes;
  };
  std::vector<Channel> channels;
  for (const PointAttribute* column : columns.all) {
    std::string name = TheirName(kMayaNames, column->name);
    std::erase(name, '_');  // the last one ends the object's name
    const ArrayKind kind = column->components == 3 ? kArrayKinds[0] : kArrayKinds[3];
    channels.push_back({column, "particles_" + name, kind,
                        set.count * static_cast<std::uint64_t>(column->components) * SizeOf(kind.number)});
    size += 8 + Padded(channels.back().name.size() + 1) + 12 + 8 + channels.back().bytes;
  }
  if (size > kMostBytes) return Status::Fail(ErrorKind::Output, "the particles are more than a Maya cache can hold");
  ByteBuffer head(true);
  const auto chunk = [](ByteBuffer& to, std::string_view tag, std::uint64_t bytes) {
    to.Text(tag);
    to.Put(static_cast<std::uint32_t>(bytes));
  };
  chunk(head, "FOR4", 40), head.Text("CACH");
  chunk(head, "VRSN", 4), head.Text("0.1", 4);
  for (const char* time : {"STIM", "ETIM"}) chunk(head, time, 4), head.Put(std::int32_t(0));
  chunk(head, "FOR4", size), head.Text("MYCH");
  head.WriteTo(sink.out);
  for (const Channel& channel : channels) {
    ByteBuffer entry(true);
    chunk(entry, "CHNM", channel.name.size() + 1), entry.Text(channel.name, Padded(channel.name.size() + 1));
    chunk(entry, "SIZE", 4), entry.Put(static_cast<std::uint32_t>(set.count));
    chunk(entry, channel.kind.tag, channel.bytes);
    entry.WriteTo(sink.out);
    if (Status written = WriteColumn(set, *channel.column, {channel.kind.number, true}, sink.out); !written) {
      return written;
    }
  }
  return {};
}

}  // namespace orlix
