#pragma once
// Outcomes that a caller must look at. Nothing in the engine throws across a layer; a failed operation says what, where
// and what would be allowed.

#include <optional>
#include <string>
#include <utility>

namespace orlix {

enum class ErrorKind {
  Internal,
  Usage,
  Scene,      // a mistake in a scene file
  InputFile,  // an input file can't be read or is broken
  Output,     // a result can't be written: permissions, a full disk
  Memory,     // beyond the memory budget
  Diverged    // NaN or infinity
};

struct Error {
  ErrorKind kind = ErrorKind::Internal;
  std::string text;
};

// Success, or an Error.
class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(Error error) : error_(std::move(error)) {}  // NOLINT: an error is a status
  static Status Fail(ErrorKind kind, std::string text) { return Status(Error{kind, std::move(text)}); }
  bool ok() const { return !error_; }
  explicit operator bool() const { return ok(); }
  const Error& error() const { return *error_; }

 private:
  std::optional<Error> error_;
};

// A value, or an Error.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}      // NOLINT: a value is a result
  Result(Error error) : error_(std::move(error)) {}  // NOLINT: an error is a result
  static Result Fail(ErrorKind kind, std::string text) { return Result(Error{kind, std::move(text)}); }
  bool ok() const { return value_.has_value(); }
  explicit operator bool() const { return ok(); }
  const Error& error() const { return error_; }
  T& operator*() { return *value_; }
  const T& operator*() const { return *value_; }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }
  Status status() const { return ok() ? Status() : Status(error_); }

 private:
  std::optional<T> value_;
  Error error_;
};

}  // namespace orlix
