// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/URL.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tidewell {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Escapes that are not two hexadecimal digits stay as they are.
std::string percentDecoded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      result.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      result.push_back(text[i]);
    }
  }
  return result;
}

bool isScheme(std::string_view text) {
  const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [&](char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
  });
}

std::vector<URL::QueryItem> splitQuery(std::string_view query) {
  std::vector<URL::QueryItem> items;
  for (;;) {
    const auto end = query.find('&');
    const auto item = query.substr(0, end);
    const auto equals = item.find('=');
    if (equals == std::string_view::npos) {
      items.emplace_back(percentDecoded(item), std::nullopt);
    } else {
      items.emplace_back(percentDecoded(item.substr(0, equals)), percentDecoded(item.substr(equals + 1)));
    }
    if (end == std::string_view::npos) return items;
    query.remove_prefix(end + 1);
  }
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

URL URL::file(std::string_view path) {
  URL url;
  url.scheme_ = "file";
  if (path.starts_with('/')) {
    url.path_ = path;
  } else {
    std::error_code error;
    const std::string current = std::filesystem::current_path(error).native();
    url.path_ = (error || current == "/" ? "/" : current + "/") + std::string(path);
  }
  url.path_ = withoutTrailingSlashes(std::move(url.path_));
  return url;
}

std::optional<URL> URL::parse(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || !isScheme(text.substr(0, colon))) return std::nullopt;
  URL url;
  url.scheme_ = text.substr(0, colon);
  text.remove_prefix(colon + 1);
  text = text.substr(0, text.find('#'));
  if (const auto question = text.find('?'); question != std::string_view::npos) {
    url.query_ = splitQuery(text.substr(question + 1));
    text = text.substr(0, question);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const auto slash = std::min(text.find('/'), text.size());
    auto authority = text.substr(0, slash);
    if (const auto at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
    if (const auto port = authority.rfind(':');
        port != std::string_view::npos && authority.find(']', port) == std::string_view::npos) {
      authority = authority.substr(0, port);
    }
    url.host_ = authority;
    text.remove_prefix(slash);
  }
  url.path_ = text;

  if (asciiLowercased(url.scheme_) != "file") return url;
  if (!url.host_.empty() && asciiLowercased(url.host_) != "localhost") return std::nullopt;
  const std::string path = percentDecoded(url.path_);
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) return std::nullopt;
  return URL::file(path);
}

std::string URL::lastPathComponent() const {
  if (path_ == "/") return path_;
  return path_.substr(path_.rfind('/') + 1);
}

std::string URL::pathExtension() const {
  const std::string name = lastPathComponent();
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return {};
  return name.substr(dot + 1);
}

std::string URL::stem() const {
  std::string name = lastPathComponent();
  const auto extension = pathExtension();
  if (!extension.empty()) name.resize(name.size() - extension.size() - 1);
  return name;
}

URL URL::appending(std::string_view component) const {
  URL url = *this;
  if (!url.path_.ends_with('/')) url.path_ += '/';
  url.path_ += component;
  url.path_ = withoutTrailingSlashes(std::move(url.path_));
  return url;
}

URL URL::deletingLastPathComponent() const {
  URL url = *this;
  const auto slash = url.path_.rfind('/');
  if (slash != std::string::npos) url.path_.resize(std::max<std::size_t>(slash, 1));
  return url;
}

URL URL::standardized() const {
  URL url = *this;
  url.path_ = withoutTrailingSlashes(std::filesystem::path(path_).lexically_normal().native());
  return url;
}

URL URL::resolvingSymlinks() const {
  URL url = standardized();
  // What is no link needs no more than the path of its folder; a batch asks for thousands.
  struct stat info {};
  const bool isLink = lstat(url.path_.c_str(), &info) == 0 ? S_ISLNK(info.st_mode) : errno != ENOENT;
  char folder[PATH_MAX];
  if (!isLink && url.path_ != "/" && realpath(url.deletingLastPathComponent().path_.c_str(), folder)) {
    const std::string name = url.lastPathComponent();
    url.path_ = folder;
    return url.appending(name);
  }
  std::error_code error;
  const auto resolved = std::filesystem::weakly_canonical(url.path_, error);
  if (!error && !resolved.empty()) url.path_ = withoutTrailingSlashes(resolved.native());
  return url;
}

std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

}  // namespace tidewell
