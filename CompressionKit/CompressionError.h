#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tidewell {

/// The failures that a user reads about. Every room of the library throws these; failures of the platform
/// (`FileError`) pass through unchanged beside them.
class CompressionError : public std::exception {
 public:
  enum class Case {
    toolMissing,
    toolFailed,
    fileOperation,
    invalidImage,
    formatMismatch,
    changedDuringCompression,
    validationFailed,
    unsafeRestore,
  };

  static CompressionError toolMissing(std::string_view tool);
  static CompressionError toolFailed(std::string_view detail);
  static CompressionError fileOperation(std::string_view message);
  static CompressionError invalidImage();
  static CompressionError formatMismatch();
  static CompressionError changedDuringCompression();
  static CompressionError validationFailed();
  static CompressionError unsafeRestore();

  Case kind() const { return kind_; }
  const std::string& errorDescription() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

  bool operator==(const CompressionError& other) const {
    return kind_ == other.kind_ && description_ == other.description_;
  }

 private:
  CompressionError(Case kind, std::string description) : kind_(kind), description_(std::move(description)) {}

  Case kind_;
  std::string description_;
};

}  // namespace tidewell
