// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Leftovers.h"

#include <sys/stat.h>
#include <unistd.h>

#include <exception>

#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::files {
namespace {

constexpr std::string_view temporaryPrefix = ".tidewell-";
constexpr std::string_view temporarySuffix = ".tmp";

}  // namespace

bool isUntouchedSince(Date moment, const URL& url, EntryKind kind) {
  struct stat info {};
  if (lstat(url.path().c_str(), &info) != 0 || info.st_uid != geteuid()) return false;
  if (kind == EntryKind::directory ? !S_ISDIR(info.st_mode) : !S_ISREG(info.st_mode)) return false;
  const auto changed =
      static_cast<double>(info.st_ctim.tv_sec) + static_cast<double>(info.st_ctim.tv_nsec) * 1e-9;
  return Date::since1970(changed) <= moment;
}

std::string temporaryName() {
  return std::string(temporaryPrefix) + UUID::random().string() + std::string(temporarySuffix);
}

bool isTemporaryName(std::string_view name) {
  if (!name.starts_with(temporaryPrefix) || !name.ends_with(temporarySuffix)) return false;
  name.remove_prefix(temporaryPrefix.size());
  return name.size() > temporarySuffix.size() &&
         UUID::isCanonical(name.substr(0, name.size() - temporarySuffix.size()));
}

void removeTemporaries(const URL& directory, Date moment) noexcept {
  try {
    for (const auto& name : namesInDirectory(directory)) {
      if (!isTemporaryName(name)) continue;
      const URL file = directory.appending(name);
      if (isUntouchedSince(moment, file, EntryKind::regularFile)) unlink(file.path().c_str());
    }
  } catch (const std::exception&) {  // no such directory, or no memory: another time
  }
}

}  // namespace tidewell::files
