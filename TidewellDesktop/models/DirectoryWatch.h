// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QObject>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/URL.h"

class QSocketNotifier;

namespace tidewell::desktop {

/// Tells of entries in directories by their names, as the kernel does; which is what `QFileSystemWatcher`
/// does not tell, so that a folder of many files would be listed for each of them.
class DirectoryWatch : public QObject {
  Q_OBJECT

 public:
  enum class Event : std::uint32_t {
    appeared,  ///< made, or renamed to there, and complete where it was renamed
    opened,
  };

  explicit DirectoryWatch(QObject* parent = nullptr);
  ~DirectoryWatch() override;

  /// One that is not there (yet), or goes, is waited for. Where the kernel refuses, nothing is told.
  void watch(const URL& directory, Event event);

 Q_SIGNALS:
  void seen(const std::string& directory, const std::string& name);
  /// Names were missed, all of them perhaps: the directory has just come to be, or the kernel lost some.
  void mustList(const std::string& directory);

 private:
  struct Watched {
    std::string directory;
    std::uint32_t mask = 0;
  };

  bool arm(const Watched& wish);
  void armMissing();
  void waitFor(const std::string& missing);
  void readEvents();

  Descriptor inotify_;
  QSocketNotifier* notifier_ = nullptr;
  std::unordered_map<int, Watched> watched_;        ///< by the kernel's number
  std::unordered_map<int, std::string> ancestors_;  ///< of those that are missing
  std::vector<Watched> missing_;
};

}  // namespace tidewell::desktop
