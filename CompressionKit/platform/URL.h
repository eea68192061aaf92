// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewell {

/// A location: a file by its path, or any other URL by its text.
///
/// Paths are bytes. Nothing here assumes that a file name is valid UTF-8, and `path()` gives back exactly
/// the bytes that the kernel knows the file by.
class URL {
 public:
  /// A file URL. A relative path is resolved against the current directory; nothing else is changed
  /// ("." and ".." stay, links are not followed, existence is not checked). A trailing "/" is dropped.
  static URL file(std::string_view path);

  /// Parses the text of a URL. "file:" URLs (empty or "localhost" authority) become file URLs with their
  /// percent escapes decoded to bytes. Nothing for text without a scheme or with a NUL byte in its path.
  static std::optional<URL> parse(std::string_view text);

  bool isFileURL() const { return scheme_ == "file"; }

  /// Scheme and host as written: no change of letter case.
  const std::string& scheme() const { return scheme_; }
  const std::string& host() const { return host_; }

  /// File URLs: the absolute path as bytes. Others: the path part as written.
  const std::string& path() const { return path_; }

  /// The query of a URL that is not a file URL, split at "&" and the first "=" of each item, percent escapes
  /// decoded ("+" stays "+"). Nothing when there is no "?"; an item without "=" has no value.
  using QueryItem = std::pair<std::string, std::optional<std::string>>;
  const std::optional<std::vector<QueryItem>>& queryItems() const { return query_; }

  std::string lastPathComponent() const;
  /// What follows the last "." of the last component; empty for "name", ".name" and "name.".
  std::string pathExtension() const;
  /// The last component without "." and `pathExtension()`.
  std::string stem() const;
  URL appending(std::string_view component) const;
  URL deletingLastPathComponent() const;
  /// "." and ".." removed textually, repeated slashes joined; links are not followed.
  URL standardized() const;
  /// Standardised, with the links of every part that exists resolved.
  URL resolvingSymlinks() const;

  bool operator==(const URL&) const = default;

 private:
  std::string scheme_;
  std::string host_;
  std::string path_;
  std::optional<std::vector<QueryItem>> query_;
};

/// `text` in lower case, ASCII letters only: what file extensions need, whatever the locale.
std::string asciiLowercased(std::string_view text);

}  // namespace tidewell
