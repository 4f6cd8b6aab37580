// The main of every Quick Test binary: the QML files of QUICK_TEST_SOURCE_DIR
// run against the real QML module and adapters on a journal in a temporary
// folder holding a fixed set of sample records, with the binary's own
// FixtureSingletons beside `Fixture`. Test files run in name order and share
// the journal, as one user would.
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include "gui_test_support.h"

Q_IMPORT_QML_PLUGIN(LumeoPlugin)

// The name is expanded before QUICK_TEST_MAIN_WITH_SETUP quotes it.
#define LUMEO_QUICK_TEST_MAIN(name) QUICK_TEST_MAIN_WITH_SETUP(name, lumeo::gui::testing::QuickTestSetup)
LUMEO_QUICK_TEST_MAIN(LUMEO_QUICK_TEST_NAME)
