// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// What the service costs beside its tools: for each image, one run of the batch in a process of its own.
//
//   compression_benchmark [--tools DIRECTORY] [--quick] [--runs N] [--before FILE] [--save FILE] [IMAGE …]
//
// Without images it makes its own. Figures are ratios within one run, the medians of N; absolute seconds
// depend on the machine. They stand beside those of FILE, which --save has written, of the version before.

#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CompressionKit/batch/BackgroundCompressor.h"
#include "CompressionKit/engine/CompressionEngine.h"
#include "CompressionKit/platform/Digest.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/platform/UUID.h"
#include "CompressionKit/queue/CompressionQueue.h"
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

/// Decodes in a process of its own, and counts as ours.
constexpr const char* heicDecoder = "heic-decoder";

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
    timespec watching{};
    std::thread watch([&] {
      while (!done) {
        peakThreads = std::max(peakThreads.load(), processStatus("Threads:") - 1);  // without this one
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &watching);
    });
    const auto start = std::chrono::steady_clock::now();
    {
      CompressionQueue queue(CompressionQueue::recommendedConcurrentTasks(), scratch.appending("Locks"));
      BackgroundCompressor compressor(
          CompressionEngine(ToolRunner(tools), UndoStore(scratch.appending("Undo")), {},
                            {.url = tools.appending(heicDecoder)}),
          queue);
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
    figures.ownCPU = seconds(own.ru_utime) + seconds(own.ru_stime) -
                     (static_cast<double>(watching.tv_sec) + static_cast<double>(watching.tv_nsec) / 1e9);
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
  double decoderCPU = 0;
};

ToolTimes readLog(const URL& log) {
  ToolTimes times;
  std::ifstream file(log.path());
  std::string name;
  for (double wall = 0, cpu = 0; file >> name >> wall >> cpu;) {
    if (name == heicDecoder) {
      times.decoderCPU += cpu;
    } else {
      times.wall += wall;
      times.cpu += cpu;
    }
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
  add("icon-alpha.png", [](const std::string& path) { samples::writeIconPNG(path, 1400); });
  if (!quick)
    add("photo-12mp.png", [](const std::string& path) { samples::writePhotoPNG(path, 4000, 3000, 2); });
  for (const int frames : quick ? std::vector<int>{10} : std::vector<int>{10, 100, 500}) {
    add("animation-" + std::to_string(frames) + ".gif",
        [&](const std::string& path) { samples::writeAnimationGIF(path, 480, 360, frames, 4); });
  }
  if (!quick) {
    const URL url = folder.appending("photo-12mp.heic");
    const std::string command = "heif-enc -q 60 -o '" + url.path() + "' '" +
                                folder.appending("photo-12mp.jpg").path() + "' >/dev/null 2>&1";
    if (std::system(command.c_str()) == 0) made.push_back({"photo-12mp.heic", url});
  }
  return made;
}

/// A directory in which every tool is the shim.
URL makeShims(const URL& scratch) {
  URL directory = scratch.appending("shims");
  files::createDirectory(directory);
  const URL shim = locations::executableDirectory().appending("tool_shim");
  for (const char* tool : {"cjpegli", "ssimulacra2", "pngquant", "oxipng", "gifsicle", heicDecoder}) {
    if (symlink(shim.path().c_str(), directory.appending(tool).path().c_str()) != 0) std::abort();
  }
  return directory;
}

/// What is compared between versions.
struct Ratios {
  double cpu = 0;   ///< our CPU time by the tools'
  double wall = 0;  ///< all the time by that of the tools
};

struct Row {
  std::vector<Ratios> runs;
  Figures last;
  ToolTimes tools;
  double peakMiB = 0;

  Ratios median() const {
    const auto of = [&](double Ratios::*member) {
      std::vector<double> values;
      for (const Ratios& run : runs) values.push_back(run.*member);
      std::ranges::nth_element(values, values.begin() + std::ssize(values) / 2);
      return values[values.size() / 2];
    };
    return {.cpu = of(&Ratios::cpu), .wall = of(&Ratios::wall)};
  }
};

using Previous = std::map<std::string, Ratios>;

Previous readPrevious(const std::string& path) {
  Previous previous;
  std::ifstream file(path);
  std::string name;
  for (Ratios ratios; file >> name >> ratios.cpu >> ratios.wall;) previous[name] = ratios;
  return previous;
}

/// Runs a batch of copies of the images once more and adds what it cost.
void run(Row& row, const std::vector<Sample>& images, const URL& shims, const URL& log, const URL& scratch) {
  const URL folder = scratch.appending("work");
  files::createDirectory(folder);
  const files::TemporaryTree removal(folder);
  files::removeItemIfPossible(log);
  std::vector<URL> copies;
  for (const Sample& image : images) {
    copies.push_back(folder.appending(image.name));
    files::copyItem(image.url, copies.back());
  }
  row.last = measure(copies, shims, scratch);
  row.tools = readLog(log);
  row.last.ownCPU += row.tools.decoderCPU;
  row.peakMiB = std::max(row.peakMiB, static_cast<double>(row.last.peakKiB) / 1024);
  if (row.tools.cpu > 0) {
    row.runs.push_back({.cpu = row.last.ownCPU / row.tools.cpu, .wall = row.last.wall / row.tools.wall});
  }
}

void print(const std::string& name, const Row& row, const Previous& previous) {
  const double saved = row.last.originalBytes > 0
                           ? 100.0 * static_cast<double>(row.last.originalBytes - row.last.finalBytes) /
                                 static_cast<double>(row.last.originalBytes)
                           : 0;
  std::printf("%-28s %-10s %6.1f%% %9.3f %9.3f ", name.c_str(), row.last.outcome, saved, row.last.ownCPU,
              row.tools.cpu);
  if (row.runs.empty()) {
    std::printf("no tool ran\n");
    return;
  }
  const Ratios median = row.median();
  std::printf("%7.1f%% %8.2fx %8.1f", 100 * median.cpu, median.wall, row.peakMiB);
  if (const auto was = previous.find(name); was != previous.end()) {
    std::printf("   was %6.1f%% %5.2fx", 100 * was->second.cpu, was->second.wall);
  }
  std::printf("\n");
  std::fflush(stdout);
}

struct Plan {
  int runs = 1;
  std::string before;
  std::string save;
};

void reportImages(const std::vector<Sample>& images, const URL& tools, const URL& scratch, const Plan& plan) {
  const URL shims = makeShims(scratch);
  const URL log = scratch.appending("tools.log");
  setenv("TIDEWELL_BENCHMARK_TOOLS", tools.path().c_str(), 1);
  setenv("TIDEWELL_BENCHMARK_LOG", log.path().c_str(), 1);
  setenv("TIDEWELL_CONFINE", "off", 1);  // the shims start programs
  const Previous previous = readPrevious(plan.before);
  std::ofstream save(plan.save);
  std::printf("%-28s %-10s %7s %9s %9s %8s %9s %8s\n", "image", "outcome", "saved", "own CPU s", "tools CPU",
              "own/tool", "wall/tool", "peak MiB");
  const auto report = [&](const std::string& name, const std::vector<Sample>& batch) {
    Row row;
    for (int i = 0; i < plan.runs; ++i) run(row, batch, shims, log, scratch);
    print(name, row, previous);
    if (save.is_open() && !row.runs.empty()) {
      save << name << ' ' << row.median().cpu << ' ' << row.median().wall << '\n';
    }
  };
  for (const auto& image : images) report(image.name, {image});
  if (images.size() > 1) report("all-in-one-batch", images);
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

int main(int count, char** arguments) try {
  URL tools = locations::toolsDirectory();
  bool quick = false;
  Plan plan;
  std::vector<Sample> images;
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    if (argument == "--quick") {
      quick = true;
    } else if (argument == "--tools" && i + 1 < count) {
      tools = URL::file(arguments[++i]);
    } else if (argument == "--runs" && i + 1 < count) {
      plan.runs = std::max(1, std::atoi(arguments[++i]));
    } else if (argument == "--before" && i + 1 < count) {
      plan.before = arguments[++i];
    } else if (argument == "--save" && i + 1 < count) {
      plan.save = arguments[++i];
    } else if (argument.starts_with('-')) {
      std::fprintf(
          stderr,
          "usage: %s [--tools DIRECTORY] [--quick] [--runs N] [--before FILE] [--save FILE] [IMAGE...]\n",
          arguments[0]);
      return 2;
    } else {
      const URL url = URL::file(argument);
      images.push_back({url.lastPathComponent(), url});
    }
  }
  std::string pattern = locations::temporaryDirectory().appending("tidewell-benchmark-XXXXXX").path();
  if (!mkdtemp(pattern.data())) return 1;
  const files::TemporaryTree scratch(URL::file(pattern));
  if (images.empty()) {
    std::fprintf(stderr, "making sample images …\n");
    images = makeSamples(scratch.url(), quick);
  }
  reportImages(images, tools, scratch.url(), plan);
  reportRefusals(tools, scratch.url());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
