// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

namespace tidewell {

/// What a decoder reads: a file, whose name is of no matter once it is open, or bytes in memory. Cheap to
/// copy. The position of a descriptor is neither used nor changed, so that several readers may share one.
class ImageInput {
 public:
  /// Opens the file. Throws `FileError`.
  explicit ImageInput(const URL& url);
  /// A file that can be read at any position; `name` is for messages.
  explicit ImageInput(Descriptor descriptor, std::string name = "");
  /// The bytes must outlive it and all that read it.
  explicit ImageInput(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// Of the file; -1 for bytes. Owned by this and its copies.
  int descriptor() const { return descriptor_ ? descriptor_->get() : -1; }
  /// In bytes. Throws `FileError`.
  std::int64_t size() const;
  /// Up to `size` bytes at `offset`: fewer only at the end; -1, with errno, when they cannot be read.
  ssize_t readAt(std::int64_t offset, void* to, std::size_t size) const noexcept;
  /// The first bytes, at most `maximumBytes`. Throws `FileError`.
  std::string head(std::size_t maximumBytes) const;
  /// Of what was opened, whatever stands under its name by now; as `tidewell::hash`. Throws `FileError`.
  std::string hash() const;

  struct Close {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };
  using Stream = std::unique_ptr<std::FILE, Close>;
  /// From the start, for libraries that read streams. Has a position of its own and keeps the file open.
  Stream stream() const;

 private:
  std::shared_ptr<const Descriptor> descriptor_;
  std::span<const std::uint8_t> bytes_;
  std::string name_;
};

}  // namespace tidewell
