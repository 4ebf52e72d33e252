#pragma once
// What the library for OpenVDB files offers. It stands in a file of its own beside the program, orlix_openvdb.so, which
// is loaded when the first such file is read or written: OpenVDB has 69,000 symbols for the dynamic linker to find,
// some 80 ms of each start of a program that is linked with it.

#include "exchange/vdb/VdbFile.h"

namespace orlix {

struct VdbCalls {
  decltype(&WriteVdb) write;
  Status (*writePoints)(const std::filesystem::path& path, const PointSet& set, int frame);
  decltype(&ReadVdbPoints) readPoints;
  decltype(&ReadVdbInfo) readInfo;
};

inline constexpr const char* kVdbLibrary = "orlix_openvdb.so";
inline constexpr const char* kVdbSymbol = "OrlixVdbCalls";  // const VdbCalls*()

}  // namespace orlix
