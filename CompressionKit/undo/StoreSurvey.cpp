// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/StoreSurvey.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Leftovers.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell {
namespace {

/// As `URL::pathExtension` would tell, without a URL for each of thousands.
bool isRecordName(std::string_view name) {
  constexpr std::string_view ending = ".json";
  return name.size() > ending.size() && name.ends_with(ending);
}

/// Whether a file is gone, and not only where a link leads.
bool hasVanished(const URL& url) {
  try {
    files::resourceValues(url);
    return false;
  } catch (const FileError& error) {
    return error.code() == ENOENT;
  }
}

}  // namespace

StoreSurvey::StoreSurvey(const URL& root) {
  std::vector<std::string> directories;
  try {
    files::visitDirectory(root, [&](std::string_view name, bool isDirectory) {
      if (isDirectory) {
        directories.emplace_back(name);
      } else if (files::isTemporaryName(name)) {
        temporariesInRoot_.push_back(root.appending(name));
      }
    });
  } catch (const FileError& error) {
    if (error.code() != ENOENT) throw;
  }
  for (const auto& name : directories) {
    try {
      look(root.appending(name), name);
    } catch (const FileError&) {  // cannot be listed
    }
  }
}

void StoreSurvey::look(const URL& directory, std::string_view name) {
  Session session;
  session.url = directory;
  session.isOurs = UUID::isCanonical(name);
  std::vector<std::string> recordNames;
  files::visitDirectory(directory, [&](std::string_view child, bool) {
    (isRecordName(child) ? recordNames : session.others).emplace_back(child);
  });
  session.hasRecords = !recordNames.empty();
  if (session.others.empty() && session.hasRecords) return;
  for (const auto& recordName : recordNames) {
    const URL file = directory.appending(recordName);
    try {
      if (auto record = UndoRecord::read(file)) {
        keepRecord(*std::move(record));
      } else {
        session.isReadable = false;
      }
    } catch (const FileError&) {
      if (!hasVanished(file)) session.isReadable = false;
    }
  }
  sessions_.push_back(std::move(session));
}

void StoreSurvey::keepRecord(UndoRecord record) {
  named_.insert(record.sessionID.string() + "/" + record.backupName);
  record.originalPath = record.replacementHash = {};  // of a hundred thousand these are most
  record.originalHash = record.convertedPath = {};
  records_.push_back(std::move(record));
}

bool StoreSurvey::isNamed(const Session& session, std::string_view file) const {
  return named_.contains(session.url.lastPathComponent() + "/" + std::string(file));
}

bool StoreSurvey::hasUnnamedFiles() const {
  return std::ranges::any_of(sessions_, [&](const Session& session) {
    return session.isOurs && session.isReadable && std::ranges::any_of(session.others, [&](const auto& file) {
             return (!file.starts_with('.') || files::isTemporaryName(file)) && !isNamed(session, file);
           });
  });
}

void StoreSurvey::replaceRecords(std::vector<UndoRecord> records) {
  records_.clear();
  for (auto& record : records) keepRecord(std::move(record));
}

}  // namespace tidewell
