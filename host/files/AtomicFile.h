#pragma once
// A result under construction. The bytes go to a temporary name beside the final one; Commit flushes, syncs, reads
// everything back and compares it, and only then renames. So a final name holds the old content, the whole new content
// or nothing, whatever happens: a full disk, a kill, a power cut.
//
//   AtomicFile file;
//   if (Status s = file.Open("out/smoke.0001.vdb"); !s) return s;
//   file.Write(bytes, size);   // may be ignored: the first error sticks and Commit reports it
//   return file.Commit();
//
// The destructor of a file that wasn't committed removes the temporary.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "globals/Result.h"

namespace orlix {

class AtomicFile {
 public:
  // Looks at the temporary before it gets its final name, for instance opens it with the format's own reader.
  using Proof = std::function<Status(const std::filesystem::path& temporary)>;

  AtomicFile() = default;
  ~AtomicFile() { Abandon(); }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates the temporary. The folder must exist. A symbolic link at the path is replaced, whatever it leads to: a
  // link that another user put there never decides what is written. Anything else that isn't a plain file is refused.
  Status Open(const std::filesystem::path& path);
  bool IsOpen() const { return descriptor_ >= 0; }
  const std::filesystem::path& Path() const { return path_; }

  // False after the first error, which sticks.
  bool Write(const void* bytes, std::size_t size);
  // Moves the place of the next Write; at most to the end.
  bool Seek(std::uint64_t position);
  std::uint64_t Position() const { return position_; }
  std::uint64_t Size() const { return size_; }
  // The first error.
  const Status& status() const { return status_; }

  // Makes the file final. Any error, this one's or an earlier one, leaves the final name as it was.
  Status Commit(const Proof& proof = {});
  // Removes the temporary.
  void Abandon();

 private:
  Status CreateTemporary();
  bool Fail(const char* doing, int systemError);
  bool LoadBlock(std::uint64_t block);
  bool FlushBlock();
  bool VerifyBlocks();
  bool Publish();
  std::size_t BlockBytes(std::uint64_t block) const;

  std::filesystem::path path_, temporary_;
  int descriptor_ = -1;
  Status status_;
  std::uint64_t position_ = 0, size_ = 0;
  // One block of the file is held here; of all others the hash of what was written is known. Its pages go back to the
  // system with it: on the heap, what is kept from one frame to the next took its place, and the heap grew.
  struct Unmap {
    void operator()(unsigned char* block) const;
  };
  std::unique_ptr<unsigned char, Unmap> buffer_;
  std::uint64_t bufferBlock_ = 0;
  bool bufferDirty_ = false;
  std::vector<std::uint64_t> blockHash_;
};

// A whole small file in one call.
Status WriteFileAtomically(const std::filesystem::path& path, std::string_view content,
                           const AtomicFile::Proof& proof = {});

// The process that writes a temporary of this name; 0 when the name isn't a temporary's.
int TemporaryOwner(const std::filesystem::path& name);
// Removes the temporaries that dead processes left in the folder; gives their number.
int RemoveStaleTemporaries(const std::filesystem::path& folder);

}  // namespace orlix
