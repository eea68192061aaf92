// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/DirectoryWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cstddef>
#include <utility>

namespace tidewell::desktop {
namespace {

constexpr std::uint32_t appearance = IN_CREATE | IN_MOVED_TO;

std::uint32_t maskOf(DirectoryWatch::Event event) {
  // What is written in place is no concern of ours: all that is read here is renamed to its name.
  return (event == DirectoryWatch::Event::opened ? IN_OPEN : appearance) | IN_ONLYDIR | IN_MASK_ADD;
}

}  // namespace

DirectoryWatch::DirectoryWatch(QObject* parent)
    : QObject(parent), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!inotify_) return;
  notifier_ = new QSocketNotifier(inotify_.get(), QSocketNotifier::Read, this);
  connect(notifier_, &QSocketNotifier::activated, this, &DirectoryWatch::readEvents);
}

DirectoryWatch::~DirectoryWatch() = default;

void DirectoryWatch::watch(const URL& directory, Event event) {
  Watched wish{directory.path(), maskOf(event)};
  if (arm(wish)) return;
  waitFor(wish.directory);
  missing_.push_back(std::move(wish));
  armMissing();  // it may have come meanwhile
}

bool DirectoryWatch::arm(const Watched& wish) {
  const int number = inotify_add_watch(inotify_.get(), wish.directory.c_str(), wish.mask);
  if (number < 0) return false;
  watched_[number] = wish;
  return true;
}

void DirectoryWatch::armMissing() {
  std::vector<Watched> missing = std::exchange(missing_, {});
  for (Watched& wish : missing) {
    if (arm(wish)) {
      Q_EMIT mustList(wish.directory);
    } else {
      waitFor(wish.directory);
      missing_.push_back(std::move(wish));
    }
  }
}

/// Watches the nearest folder above it that is there.
void DirectoryWatch::waitFor(const std::string& missing) {
  URL folder = URL::file(missing);
  while (folder.path() != "/") {
    folder = folder.deletingLastPathComponent();
    const int number =
        inotify_add_watch(inotify_.get(), folder.path().c_str(), appearance | IN_ONLYDIR | IN_MASK_ADD);
    if (number < 0) continue;
    ancestors_[number] = folder.path();
    return;
  }
}

void DirectoryWatch::readEvents() {
  alignas(inotify_event) char buffer[64 << 10];
  bool ancestorChanged = false;
  for (;;) {
    const ssize_t size = read(inotify_.get(), buffer, sizeof buffer);
    if (size <= 0) break;
    for (ssize_t at = 0; at < size;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof event + event.len);
      if (event.mask & IN_Q_OVERFLOW) {
        for (const auto& [number, known] : std::unordered_map(watched_)) Q_EMIT mustList(known.directory);
        ancestorChanged = true;
        continue;
      }
      ancestorChanged = ancestorChanged || ancestors_.contains(event.wd);
      const auto known = watched_.find(event.wd);
      if (event.mask & IN_IGNORED) {  // the directory has gone
        ancestors_.erase(event.wd);
        if (known == watched_.end()) continue;
        missing_.push_back(std::move(known->second));
        watched_.erase(known);
        ancestorChanged = true;
      } else if (known != watched_.end() && event.len > 0 && (event.mask & known->second.mask)) {
        Q_EMIT seen(known->second.directory, event.name);
      }
    }
  }
  if (ancestorChanged) armMissing();
}

}  // namespace tidewell::desktop
