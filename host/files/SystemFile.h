#pragma once
// The few system calls that files need, with interruptions and short transfers dealt with.

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace orlix {

// All bytes at the offset, or false with errno set. A file that ends early sets EIO.
bool WriteFully(int descriptor, const void* bytes, std::size_t size, std::uint64_t offset);
bool ReadFully(int descriptor, void* bytes, std::size_t size, std::uint64_t offset);

// Makes renames in the folder lasting. 0, or the error number. Folders that can't be synced are taken as synced.
int SyncFolder(const std::filesystem::path& folder);

bool IsProcessAlive(int process);

}  // namespace orlix
