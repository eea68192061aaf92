// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <QApplication>
#include <QDBusConnection>
#include <QIcon>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <cstdio>
#include <optional>
#include <string_view>

#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/wording/Texts.h"
#include "TidewellDesktop/Application.h"
#include "TidewellDesktop/support/Words.h"

using namespace tidewell;
using namespace tidewell::desktop;

namespace {

constexpr int usageError = 64;

void printHelp() {
  std::puts(
      _("Usage: tidewell-desktop [FILE or FOLDER]...\n"
        "Shows the pictures that these name, makes them smaller and takes it back."));
}

/// An exit status where nothing is left to do. Names are bytes, which Qt's own list of arguments is not.
std::optional<int> read(int argc, char** argv, Application::Arguments& arguments) {
  bool areNames = false;
  for (int index = 1; index < argc; index++) {
    const std::string_view argument = argv[index];
    if (areNames || argument.substr(0, 1) != "-") {
      const auto uri = URL::parse(argument);
      const bool isURI = uri && uri->isFileURL() && argument.substr(0, 5) == "file:";
      arguments.files.push_back(isURI ? *uri : URL::file(argument));
    } else if (argument == "--") {
      areNames = true;
    } else if (argument == "--service") {
      arguments.isService = true;
    } else {
      std::fprintf(stderr, "tidewell-desktop: %s\n", filled(_("unknown option {1}"), {argument}).c_str());
      return usageError;
    }
  }
  return std::nullopt;
}

/// What needs no display.
bool answer(int argc, char** argv) {
  for (int index = 1; index < argc; index++) {
    const std::string_view argument = argv[index];
    if (argument == "--") return false;
    if (argument == "--help") return printHelp(), true;
    if (argument == "--version") return std::puts("tidewell-desktop " TIDEWELL_VERSION), true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  prepareTexts(locations::executableDirectory());
  if (answer(argc, argv)) return 0;
  QApplication application(argc, argv);
  QApplication::setDesktopFileName(QLatin1String(Instance::name));
  QApplication::setApplicationName(QStringLiteral("tidewell-desktop"));
  QApplication::setApplicationDisplayName(words(_("Tidewell")));
  QApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
  QApplication::setWindowIcon(QIcon::fromTheme(QLatin1String(Instance::name)));
  QTranslator ownWords;
  if (ownWords.load(QLocale(), QStringLiteral("qtbase"), QStringLiteral("_"),
                    QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
    QApplication::installTranslator(&ownWords);

  Application::Arguments arguments;
  if (const auto status = read(argc, argv, arguments)) return *status;
  Application desktop(QDBusConnection::sessionBus());
  return desktop.start(arguments) ? QApplication::exec() : 0;
}
