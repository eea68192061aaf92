#include "CompressionKit/engine/Metric.h"

#include <poll.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <exception>
#include <string>
#include <thread>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/codecs/PNGWriter.h"
#include "CompressionKit/image/Decoding.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/platform/UUID.h"

namespace tidewell::QualityAssessment {
namespace {

constexpr double toolTimeout = 180;

/// One measurement on a thread of its own, which lives as long as the tool that it starts. It ends early when
/// this goes.
class Measurement {
 public:
  Measurement(const URL& original, const URL& candidate, const ToolRunner& tools)
      : stop_(tools.stopToken()),
        thread_([this, original, candidate, own = ToolRunner(tools.directory(), ending_.token())] {
          try {
            score_ = measure(original, candidate, own);
          } catch (...) {
            error_ = std::current_exception();
          }
          done_.requestStop();
        }) {}
  Measurement(const Measurement&) = delete;
  Measurement& operator=(const Measurement&) = delete;
  ~Measurement() {
    if (!thread_.joinable()) return;
    ending_.requestStop();
    thread_.join();
  }

  /// Waits for it, or for a stop of the token that the tools were given.
  double value() {
    pollfd ends[] = {{.fd = done_.token().descriptor(), .events = 0, .revents = 0},
                     {.fd = stop_.descriptor(), .events = 0, .revents = 0}};
    while (poll(ends, std::size(ends), -1) < 0 && errno == EINTR) {
    }
    if (stop_.stopRequested()) ending_.requestStop();
    thread_.join();
    if (error_) std::rethrow_exception(error_);
    return score_;
  }

 private:
  const StopToken stop_;
  StopSource ending_, done_;
  double score_ = 0;
  std::exception_ptr error_;
  std::thread thread_;
};

}  // namespace

bool isAvailable(const ToolRunner& tools) {
  return tools.has(metricTool);
}

double measure(const URL& original, const URL& candidate, const ToolRunner& tools) {
  return parsedScore(tools.run(metricTool, {original.path(), candidate.path()}, toolTimeout,
                               {.readable = {original, candidate}, .writable = {}}));
}

ViewFiles writeViews(const views::Pair& views, const URL& directory, std::string_view number) {
  ViewFiles files{.overview = directory.appending("overview-" + std::string(number) + ".png"),
                  .detail = directory.appending("detail-" + std::string(number) + ".png")};
  decoding([&] {
    writePNG(views.overview, files.overview);
    writePNG(views.detail, files.detail);
  });
  return files;
}

double score(const ViewFiles& original, const views::Pair& candidate, const URL& directory,
             const ToolRunner& tools) {
  const URL scratch = directory.appending("score-" + UUID::random().string());
  files::createDirectory(scratch);
  const files::TemporaryTree removal(scratch);
  const ViewFiles views = writeViews(candidate, scratch, "1");
  Measurement detail(original.detail, views.detail, tools);
  const double overview = measure(original.overview, views.overview, tools);
  return std::min(overview, detail.value());
}

double parsedScore(std::string_view output) {
  const std::string_view text = trimmed(output);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw CompressionError::toolGaveNoScore("ssimulacra2");
  }
  return value;
}

}  // namespace tidewell::QualityAssessment
