#include "fluids/grids/ScratchPool.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::size_t kPage = 4096;  // workers on different pieces share no page

std::size_t RoundUp(std::size_t size, std::size_t step) { return (size + step - 1) / step * step; }

// Of a new block: grids at faces have one more layer than those at cells, and one block serves both where the
// difference is small.
std::size_t BlockSize(std::size_t bytes) {
  constexpr std::size_t kLeastShared = std::size_t(1) << 20;
  if (bytes < kLeastShared) return RoundUp(bytes, kPage);
  std::size_t step = kPage;
  while (step * 64 < bytes) step *= 2;
  return RoundUp(bytes + bytes / 64, step);
}

}  // namespace

ScratchPool::~ScratchPool() {
  for (const Block& block : blocks_) FreeGridMemory(block.memory, block.size);
}

void* ScratchPool::Borrow(std::size_t bytes) {
  const std::size_t size = RoundUp(bytes, kPage);
  // The smallest piece that suffices.
  Block* from = nullptr;
  std::size_t best = 0;
  for (Block& block : blocks_) {
    for (std::size_t n = 0; n < block.pieces.size(); ++n) {
      const Piece& piece = block.pieces[n];
      if (piece.lent || piece.size < size || (from && piece.size >= from->pieces[best].size)) continue;
      from = &block, best = n;
    }
  }
  if (!from) {
    // A grid that fills nearly half of the largest block gets one as large, so that another of its kind finds room.
    constexpr double kHalf = 0.4;
    std::size_t whole = BlockSize(bytes);
    for (const Block& block : blocks_) {
      if (double(bytes) > kHalf * double(block.size)) whole = std::max(whole, block.size);
    }
    blocks_.reserve(blocks_.size() + 1);
    Block block{nullptr, whole, {{0, whole, false}}};
    block.memory = static_cast<char*>(AllocateGridMemory(whole));
    blocks_.push_back(std::move(block));
    from = &blocks_.back(), best = 0;
  }
  Piece& piece = from->pieces[best];
  piece.lent = true;
  // A small rest stays with what is lent: as a piece it would keep the block from a slightly larger grid later.
  const std::size_t begin = piece.begin, rest = piece.size - size;
  if (rest > size / 16) {
    piece.size = size;
    from->pieces.insert(from->pieces.begin() + std::ptrdiff_t(best) + 1, {begin + size, rest, false});
  }
  return from->memory + begin;
}

void ScratchPool::Return(void* memory) {
  if (!memory) return;
  char* at = static_cast<char*>(memory);
  for (Block& block : blocks_) {
    if (at < block.memory || at >= block.memory + block.size) continue;
    std::vector<Piece>& pieces = block.pieces;
    const std::size_t offset = std::size_t(at - block.memory);
    auto piece = std::find_if(pieces.begin(), pieces.end(), [&](const Piece& p) { return p.begin == offset; });
    piece->lent = false;
    if (const auto next = piece + 1; next != pieces.end() && !next->lent) {
      piece->size += next->size;
      pieces.erase(next);
    }
    if (piece != pieces.begin() && !(piece - 1)->lent) {
      (piece - 1)->size += piece->size;
      pieces.erase(piece);
    }
    return;
  }
}

void ScratchPool::Trim() {
  std::erase_if(blocks_, [](const Block& block) {
    if (!block.IsFree()) return false;
    FreeGridMemory(block.memory, block.size);
    return true;
  });
}

}  // namespace orlix
