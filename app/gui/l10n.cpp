#include "l10n.h"

#include "platform/localization.h"

namespace lumeo::gui {

QString L10n::tr(const QString& key) const {
  return QString::fromStdString(Localization::localizedString(key.toStdString()));
}

namespace {

// Fills the "%@" / "%d" / "%ld" / "%%" places of a printf-style format in
// order. Only these appear in Lumeo's texts; anything else stays as it is.
QString fill(const QString& format, const QVariantList& arguments) {
  QString out;
  int next = 0;
  for (int i = 0; i < format.size(); ++i) {
    if (format[i] != QLatin1Char('%') || i + 1 >= format.size()) {
      out += format[i];
      continue;
    }
    int j = i + 1;
    if (format[j] == QLatin1Char('%')) {
      out += QLatin1Char('%');
      i = j;
      continue;
    }
    while (j < format.size() && format[j] == QLatin1Char('l')) ++j;
    if (j < format.size() && (format[j] == QLatin1Char('@') || format[j] == QLatin1Char('d'))) {
      out += next < arguments.size() ? arguments[next].toString() : QString();
      ++next;
      i = j;
      continue;
    }
    out += format[i];
  }
  return out;
}

}  // namespace

QString L10n::format(const QString& key, const QVariantList& arguments) const {
  const QString translated = tr(key);
  // A translation must keep the places of the key; if it lost or added one,
  // the English format is used rather than a garbled sentence.
  if (translated.count(QLatin1Char('%')) != key.count(QLatin1Char('%'))) return fill(key, arguments);
  return fill(translated, arguments);
}

}  // namespace lumeo::gui
