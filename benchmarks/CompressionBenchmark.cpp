// What the service costs beside its tools: for each image, one run of the batch in a process of its own.
//
//   compression_benchmark [--tools DIRECTORY] [--quick] [IMAGE …]
//
// Without images it makes its own. Figures are ratios within one run; absolute seconds depend on the machine.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/queue/CompressionQueue.h"
#include "TidewellBackground/BackgroundCompressor.h"
#include "TidewellBackground/ToolsDirectory.h"
#include "benchmarks/SampleImages.h"

namespace {

using namespace tidewell;

struct Figures {
  double ownCPU = 0;
  double wall = 0;
  std::int64_t peakKiB = 0;
  std::int64_t peakThreads = 0;
  std::int64_t originalBytes = 0;
  std::int64_t finalBytes = 0;
  char outcome[64] = {};
};

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// A number from /proc/self/status, such as "VmHWM:" in KiB.
std::int64_t processStatus(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(key, 0) == 0) return std::stoll(line.substr(key.size()));
  }
  return 0;
}

/// Runs one batch in a child process and returns what that process alone cost.
Figures measure(const std::vector<URL>& files, const URL& tools, const URL& scratch) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    Figures figures;
    std::atomic<bool> done = false;
    std::atomic<std::int64_t> peakThreads = 0;
    std::thread watch([&] {
      while (!done) {
        peakThreads = std::max(peakThreads.load(), processStatus("Threads:") - 1);  // without this one
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
    });
    const auto start = std::chrono::steady_clock::now();
    {
      CompressionQueue queue(CompressionQueue::recommendedConcurrentTasks(), scratch.appending("Locks"));
      BackgroundCompressor compressor(
          CompressionEngine(ToolRunner(tools), UndoStore(scratch.appending("Undo")), {}), queue);
      const auto result = compressor.compress(files);
      for (const auto& item : result.items) {
        figures.originalBytes += item.originalBytes.value_or(0);
        figures.finalBytes += item.finalBytes.value_or(0);
      }
      const std::string outcome = result.items.empty() ? "" : result.items.front().outcome;
      std::strncpy(figures.outcome, outcome.c_str(), sizeof figures.outcome - 1);
    }
    figures.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    done = true;
    watch.join();
    rusage own{};
    getrusage(RUSAGE_SELF, &own);
    figures.ownCPU = seconds(own.ru_utime) + seconds(own.ru_stime);
    figures.peakKiB = processStatus("VmHWM:");
    figures.peakThreads = peakThreads;
    const bool written = write(ends[1], &figures, sizeof figures) == sizeof figures;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  Figures figures;
  if (read(ends[0], &figures, sizeof figures) != sizeof figures) std::fprintf(stderr, "a run failed\n");
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return figures;
}

struct ToolTimes {
  double wall = 0;
  double cpu = 0;
  int runs = 0;
};

ToolTimes readLog(const URL& log) {
  ToolTimes times;
  std::ifstream file(log.path());
  std::string name;
  for (double wall = 0, cpu = 0; file >> name >> wall >> cpu; ++times.runs) {
    times.wall += wall;
    times.cpu += cpu;
  }
  return times;
}

struct Sample {
  std::string name;
  URL url;
};

std::vector<Sample> makeSamples(const URL& folder, bool quick) {
  std::vector<Sample> made;
  const auto add = [&](const std::string& name, auto make) {
    const URL url = folder.appending(name);
    make(url.path());
    made.push_back({name, url});
  };
  const auto photo = [&](const std::string& name, std::int64_t w, std::int64_t h,
                         samples::JPEGOptions options) {
    add(name, [&](const std::string& path) { samples::writePhotoJPEG(path, w, h, 1, options); });
  };
  photo("photo-2mp.jpg", 1632, 1224, {});
  photo("photo-8mp.jpg", 3264, 2448, {});
  photo("photo-8mp-fine.jpg", 3264, 2448, {.quality = 98, .fullChroma = true});
  photo("photo-12mp.jpg", 4000, 3000, {});
  if (!quick) {
    photo("photo-24mp-progressive.jpg", 6000, 4000, {.progressive = true});
    photo("photo-100mp.jpg", 11648, 8736, {});
  }
  add("photo-2mp.png", [](const std::string& path) { samples::writePhotoPNG(path, 1632, 1224, 2); });
  add("screenshot.png", [](const std::string& path) { samples::writeScreenshotPNG(path, 2560, 1440, 3); });
  if (!quick)
    add("photo-12mp.png", [](const std::string& path) { samples::writePhotoPNG(path, 4000, 3000, 2); });
  for (const int frames : quick ? std::vector<int>{10} : std::vector<int>{10, 100, 500}) {
    add("animation-" + std::to_string(frames) + ".gif",
        [&](const std::string& path) { samples::writeAnimationGIF(path, 480, 360, frames, 4); });
  }
  return made;
}

/// A directory in which every tool is the shim.
URL makeShims(const URL& scratch) {
  URL directory = scratch.appending("shims");
  files::createDirectory(directory);
  const URL shim = files::executableDirectory().appending("tool_shim");
  for (const char* tool : {"cjpegli", "ssimulacra2", "pngquant", "oxipng", "gifsicle"}) {
    if (symlink(shim.path().c_str(), directory.appending(tool).path().c_str()) != 0) std::abort();
  }
  return directory;
}

void reportImages(const std::vector<Sample>& images, const URL& tools, const URL& scratch) {
  const URL shims = makeShims(scratch);
  const URL log = scratch.appending("tools.log");
  setenv("TIDEWELL_BENCHMARK_TOOLS", tools.path().c_str(), 1);
  setenv("TIDEWELL_BENCHMARK_LOG", log.path().c_str(), 1);
  setenv("TIDEWELL_CONFINE", "off", 1);  // the shims start programs
  std::printf("%-28s %-10s %6s %9s %9s %8s %9s %8s\n", "image", "outcome", "saved", "own CPU s", "tools CPU",
              "own/tool", "wall/tool", "peak MiB");
  for (const auto& image : images) {
    const URL copy = scratch.appending("work." + image.url.pathExtension());
    files::removeItemIfPossible(copy);
    files::removeItemIfPossible(log);
    files::copyItem(image.url, copy);
    const Figures own = measure({copy}, shims, scratch);
    const ToolTimes tool = readLog(log);
    const double saved = own.originalBytes > 0
                             ? 100.0 * static_cast<double>(own.originalBytes - own.finalBytes) /
                                   static_cast<double>(own.originalBytes)
                             : 0;
    std::printf("%-28s %-10s %5.1f%% %9.3f %9.3f %7.1f%% %8.2fx %8.1f\n", image.name.c_str(), own.outcome,
                saved, own.ownCPU, tool.cpu, tool.cpu > 0 ? 100 * own.ownCPU / tool.cpu : 0,
                tool.wall > 0 ? own.wall / tool.wall : 0, static_cast<double>(own.peakKiB) / 1024);
    std::fflush(stdout);
  }
}

void reportRefusals(const URL& tools, const URL& scratch) {
  std::printf("\n%-28s %9s %9s %8s %8s\n", "10,000 paths", "wall s", "own CPU s", "threads", "peak MiB");
  const auto report = [&](const char* name, const char* extension) {
    std::vector<URL> paths;
    paths.reserve(10'000);
    for (int i = 0; i < 10'000; ++i) {
      paths.push_back(scratch.appending("missing-" + std::to_string(i) + extension));
    }
    const Figures own = measure(paths, tools, scratch);
    std::printf("%-28s %9.2f %9.2f %8lld %8.1f\n", name, own.wall, own.ownCPU,
                static_cast<long long>(own.peakThreads), static_cast<double>(own.peakKiB) / 1024);
  };
  report("of no supported kind", ".txt");
  report("that cannot be read", ".jpg");
}

}  // namespace

int main(int count, char** arguments) {
  URL tools = toolsDirectory();
  bool quick = false;
  std::vector<Sample> images;
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    if (argument == "--quick") {
      quick = true;
    } else if (argument == "--tools" && i + 1 < count) {
      tools = URL::file(arguments[++i]);
    } else {
      const URL url = URL::file(argument);
      images.push_back({url.lastPathComponent(), url});
    }
  }
  std::string pattern = files::temporaryDirectory().appending("tidewell-benchmark-XXXXXX").path();
  if (!mkdtemp(pattern.data())) return 1;
  const files::TemporaryTree scratch(URL::file(pattern));
  if (images.empty()) {
    std::fprintf(stderr, "making sample images …\n");
    images = makeSamples(scratch.url(), quick);
  }
  reportImages(images, tools, scratch.url());
  reportRefusals(tools, scratch.url());
  return 0;
}
