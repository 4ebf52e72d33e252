#include "exchange/vdb/VdbFile.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <system_error>

#include "exchange/vdb/VdbCalls.h"

namespace orlix {

namespace {

Result<VdbCalls> Load() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path file = program.parent_path() / kVdbLibrary;
  void* const library = ::dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL);
  void* const symbol = library ? ::dlsym(library, kVdbSymbol) : nullptr;
  if (symbol) return *reinterpret_cast<const VdbCalls* (*)()>(symbol)();
  const char* const why = ::dlerror();
  return Result<VdbCalls>::Fail(
      ErrorKind::InputFile,
      fmt::format("{}. OpenVDB files are read and written by this library; it belongs beside the program",
                  why ? why : file.string() + ": it can't be loaded"));
}

// Stays loaded.
const Result<VdbCalls>& Calls() {
  static const Result<VdbCalls> calls = Load();
  return calls;
}

}  // namespace

Status LoadVdbLibrary() { return Calls().status(); }

Status WriteVdb(const std::filesystem::path& path, const std::vector<VdbField>& fields, const VdbOptions& options) {
  return Calls() ? Calls()->write(path, fields, options) : Calls().status();
}

Status WriteVdbPoints(const std::filesystem::path& path, const PointSet& set, int frame) {
  return Calls() ? Calls()->writePoints(path, set, frame) : Calls().status();
}

Result<PointSet> ReadVdbPoints(const std::filesystem::path& path) {
  return Calls() ? Calls()->readPoints(path) : Calls().error();
}

Result<std::vector<VdbGridInfo>> ReadVdbInfo(const std::filesystem::path& path, bool withValues) {
  return Calls() ? Calls()->readInfo(path, withValues) : Calls().error();
}

}  // namespace orlix
