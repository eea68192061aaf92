#include "CompressionKit/platform/Leftovers.h"

#include <unistd.h>

#include <exception>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::files {
namespace {

constexpr std::string_view temporaryPrefix = ".tidewell-";
constexpr std::string_view temporarySuffix = ".tmp";

}  // namespace

bool isUntouchedSince(Date moment, const URL& url, EntryKind kind) {
  try {
    const auto values = resourceValues(url);
    return (kind == EntryKind::directory ? values.isDirectory : values.isRegularFile) &&
           values.owner == geteuid() &&
           Date::since1970(static_cast<double>(values.changedAt) * 1e-9) <= moment;
  } catch (const FileError&) {
    return false;
  }
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
