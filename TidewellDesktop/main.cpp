#include <QApplication>
#include <QWidget>

#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/wording/Texts.h"

int main(int argc, char** argv) {
  tidewell::prepareTexts(tidewell::locations::executableDirectory());
  QApplication application(argc, argv);
  QApplication::setDesktopFileName(QStringLiteral("com.vantor.tidewell.Desktop"));
  QApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
  QWidget window;
  window.show();
  return QApplication::exec();
}
