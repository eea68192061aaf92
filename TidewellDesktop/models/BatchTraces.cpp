// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "TidewellDesktop/models/BatchTraces.h"

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::desktop {
namespace {

/// Another file system's clock may be this far behind.
constexpr double clockDifference = 2;

template <typename Work>
void passingOver(Work work) {
  try {
    work();
  } catch (const FileError&) {
  }
}

void readRecord(const URL& file, Traces& traces) {
  passingOver([&] {
    if (auto record = UndoRecord::read(file)) traces.records.push_back(std::move(*record));
  });
}

void readReport(const URL& file, Traces& traces) {
  passingOver([&] {
    if (auto report = Report::read(file)) traces.reports.push_back(std::move(*report));
  });
}

void listSession(const URL& session, Traces& traces) {
  passingOver([&] {
    for (const URL& file : files::contentsOfDirectory(session)) {
      if (file.pathExtension() == "json") readRecord(file, traces);
    }
  });
}

void listStore(const URL& store, Date since, Traces& traces) {
  passingOver([&] {
    files::visitDirectory(store, [&](std::string_view name, bool isDirectory) {
      if (!isDirectory || !UUID::isCanonical(name)) return;
      const URL session = store.appending(name);
      passingOver([&] {
        const double changedAt = static_cast<double>(files::resourceValues(session).changedAt) / 1e9;
        if (Date::since1970(changedAt) < since.adding(-clockDifference)) return;
        traces.sessions.push_back(session);
        listSession(session, traces);
      });
    });
  });
}

void listReports(const URL& directory, Date since, Traces& traces) {
  passingOver([&] {
    for (const URL& file : files::contentsOfDirectory(directory)) {
      const auto start = Report::startOf(file.lastPathComponent());
      if (start && *start >= since.adding(-clockDifference)) readReport(file, traces);
    }
  });
}

}  // namespace

bool TracesToRead::empty() const {
  return records.empty() && reports.empty() && sessions.empty() && !store && !diagnostics && !latestResult;
}

Traces readTraces(const TracesToRead& wish, Date since) {
  Traces traces;
  if (wish.store) listStore(*wish.store, since, traces);
  for (const URL& session : wish.sessions) listSession(session, traces);
  for (const URL& file : wish.records) readRecord(file, traces);
  if (wish.diagnostics) listReports(*wish.diagnostics, since, traces);
  for (const URL& file : wish.reports) readReport(file, traces);
  if (wish.latestResult) {
    passingOver([&] { traces.latestResult = BackgroundBatchResult::parse(files::read(*wish.latestResult)); });
  }
  return traces;
}

}  // namespace tidewell::desktop
