// The QML side of the "Lumeo" translation table: QML asks `L10n.tr(key)` and
// gets what the core's gettext catalogue says, so the GUI, the command line
// and the core's own texts share one catalogue and one language choice.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

namespace lumeo::gui {

class L10n : public QObject {
  Q_OBJECT
 public:
  using QObject::QObject;

  // The translation of `key`, or the key itself.
  Q_INVOKABLE QString tr(const QString& key) const;
  // A translated format with "%@", "%d" or "%ld" places filled in order
  // from `arguments` (strings or numbers). A catalogue whose format does not
  // fit gives the untranslated key filled the same way.
  Q_INVOKABLE QString format(const QString& key, const QVariantList& arguments) const;
};

}  // namespace lumeo::gui
