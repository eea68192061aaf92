// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/engine/Metric.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <exception>
#include <functional>
#include <future>
#include <string>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Stop.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::QualityAssessment {
namespace {

constexpr double toolTimeout = 180;

double measureStarting(const URL& original, const URL& candidate, const ToolRunner& tools,
                       const std::function<void()>& started) {
  return parsedScore(tools.run(metricTool, {original.path(), candidate.path()}, toolTimeout,
                               {.readable = {original, candidate}, .writable = {}}, started));
}

ViewFiles viewFiles(const URL& directory, std::string_view number) {
  return {.overview = directory.appending("overview-" + std::string(number) + ".png"),
          .detail = directory.appending("detail-" + std::string(number) + ".png")};
}

void write(const Bitmap& view, const URL& url) {
  decoding([&] { writePNG(view, url); });
}

}  // namespace

bool isAvailable(const ToolRunner& tools) {
  return tools.has(metricTool);
}

double measure(const URL& original, const URL& candidate, const ToolRunner& tools) {
  return measureStarting(original, candidate, tools, {});
}

ViewFiles writeViews(const views::Pair& views, const URL& directory, std::string_view number) {
  ViewFiles files = viewFiles(directory, number);
  write(views.overview, files.overview);
  write(views.detail, files.detail);
  return files;
}

double score(const ViewFiles& original, const views::Pair& candidate, const URL& directory,
             const ToolRunner& tools) {
  const files::TemporaryTree scratch(directory.appending("score-" + UUID::random().string()));
  files::createDirectory(scratch.url());
  const ViewFiles views = viewFiles(scratch.url(), "1");
  write(candidate.overview, views.overview);

  StopSource both(tools.stopToken());
  const ToolRunner part(tools.directory(), both.token());
  std::promise<void> begun;  // the overview's run, or ended before that; told once, by its thread
  auto tellBegun = [&begun, told = false]() mutable {
    if (!std::exchange(told, true)) begun.set_value();
  };
  auto overview = std::async(std::launch::async, [&] {
    try {
      return measureStarting(original.overview, views.overview, part, std::ref(tellBegun));
    } catch (...) {
      both.requestStop();
      tellBegun();
      throw;
    }
  });
  double detail = 0;
  std::exception_ptr error;
  try {
    begun.get_future().wait();
    write(candidate.detail, views.detail);
    detail = measure(original.detail, views.detail, part);
  } catch (...) {
    error = std::current_exception();
  }
  const double overviewScore = overview.get();
  if (error) std::rethrow_exception(error);
  return std::min(overviewScore, detail);
}

double parsedScore(std::string_view output) {
  const std::string_view text = trimmed(output);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw CompressionError::toolGaveNoScore(metricTool);
  }
  return value;
}

}  // namespace tidewell::QualityAssessment
