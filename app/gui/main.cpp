// lumeo-gui: the desktop application. Everything but the QML module's
// import lives in lumeo-gui-lib, which the tests link as well.
#include <QtQml/qqmlextensionplugin.h>

#include "gui_application.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

int main(int argc, char** argv) {
  return lumeo::gui::runGuiApplication(argc, argv);
}
