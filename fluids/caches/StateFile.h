#pragma once
// Simulated state to and from a file, through the one walk that each class has over its own. Both visitors meet the
// same items in the same order; the reader refuses a file whose items are named or sized otherwise.

#include <string>
#include <vector>

#include "fluids/scene/StateVisitor.h"
#include "host/files/HyperFile.h"

namespace orlix {

// Each Begin to End is a chunk. Errors stick in the file.
class StateWriter final : public StateVisitor {
 public:
  explicit StateWriter(HyperFileWriter& file) : file_(file) {}
  void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) override;
  void VisitBytes(const char* name, void* bytes, std::size_t size) override;
  void VisitBookkeeping(const char* name, void* bytes, std::size_t size) override { VisitBytes(name, bytes, size); }
  void Begin(const char* name) override;
  void End() override { file_.WriteChunkEnd(); }

 private:
  HyperFileWriter& file_;
};

class StateReader final : public StateVisitor {
 public:
  StateReader(HyperFileReader& file, std::string fileName) : file_(file), fileName_(std::move(fileName)) {}
  void VisitGrid(const char* name, std::unique_ptr<ScalarGrid>& grid) override;
  void VisitBytes(const char* name, void* bytes, std::size_t size) override;
  void VisitBookkeeping(const char* name, void* bytes, std::size_t size) override { VisitBytes(name, bytes, size); }
  bool Reading() const override { return true; }
  bool Good() const override { return status_.ok(); }
  void Refuse(const std::string& reason) override { Fail(ErrorKind::InputFile, reason); }
  void Begin(const char* name) override;
  void End() override;
  // The first error. After one nothing more is changed.
  const Status& status() const { return status_; }

 private:
  bool Expect(const char* name);
  bool Take(bool read);
  bool Fail(ErrorKind kind, const std::string& reason);
  void ReadGrid(std::unique_ptr<ScalarGrid>& grid);

  HyperFileReader& file_;
  std::string fileName_;
  Status status_;
  std::vector<std::string> path_;
};

}  // namespace orlix
