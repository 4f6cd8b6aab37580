// The look of the app: light and dark palettes, the type scale and spacing,
// and the level colours and texts from the user's level table. QML reads it
// as the singleton `Theme`. The colour scheme follows the desktop's
// preference (the portal's org.freedesktop.appearance color-scheme) unless
// the user chose light or dark in the settings; the choice is kept in the
// user defaults under "LumeoColorScheme".
#pragma once

#include <QColor>
#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <memory>

#include "platform/notification_center.h"

namespace lumeo {
class UserDefaults;
}

namespace lumeo::gui {

inline constexpr const char* kColorSchemeKey = "LumeoColorScheme";

class Theme : public QObject {
  Q_OBJECT
  // "system", "light" or "dark".
  Q_PROPERTY(QString mode READ mode WRITE setMode NOTIFY modeChanged)
  Q_PROPERTY(bool dark READ dark NOTIFY paletteChanged)
  Q_PROPERTY(QColor background READ background NOTIFY paletteChanged)
  Q_PROPERTY(QColor surface READ surface NOTIFY paletteChanged)
  Q_PROPERTY(QColor surfaceAlt READ surfaceAlt NOTIFY paletteChanged)
  Q_PROPERTY(QColor text READ text NOTIFY paletteChanged)
  Q_PROPERTY(QColor textSecondary READ textSecondary NOTIFY paletteChanged)
  Q_PROPERTY(QColor separator READ separator NOTIFY paletteChanged)
  Q_PROPERTY(QColor accent READ accent NOTIFY paletteChanged)
  Q_PROPERTY(QColor onAccent READ onAccent NOTIFY paletteChanged)
  Q_PROPERTY(QColor danger READ danger NOTIFY paletteChanged)
  Q_PROPERTY(QColor focus READ focus NOTIFY paletteChanged)
  // The splash's brand colour.
  Q_PROPERTY(QColor brand READ brand CONSTANT)
  // Type scale in points, from the system font's size so that a larger
  // desktop font makes every text larger.
  Q_PROPERTY(qreal fontBase READ fontBase NOTIFY fontChanged)
  Q_PROPERTY(qreal fontCaption READ fontCaption NOTIFY fontChanged)
  Q_PROPERTY(qreal fontTitle READ fontTitle NOTIFY fontChanged)
  Q_PROPERTY(qreal fontHeadline READ fontHeadline NOTIFY fontChanged)
  Q_PROPERTY(qreal fontDisplay READ fontDisplay NOTIFY fontChanged)
  Q_PROPERTY(int spacing READ spacing CONSTANT)
  Q_PROPERTY(int radius READ radius CONSTANT)
  // The width from which the window shows list and detail side by side.
  Q_PROPERTY(int wideWidth READ wideWidth CONSTANT)
  // Bumped whenever the level table may have changed.
  Q_PROPERTY(int levelRevision READ levelRevision NOTIFY levelsChanged)

 public:
  explicit Theme(std::shared_ptr<UserDefaults> defaults, QObject* parent = nullptr);
  ~Theme() override;

  QString mode() const { return mode_; }
  void setMode(const QString& mode);
  bool dark() const;
  // The desktop asked for dark ("system" mode follows it).
  void setSystemPrefersDark(bool dark);
  bool systemPrefersDark() const { return systemDark_; }

  QColor background() const;
  QColor surface() const;
  QColor surfaceAlt() const;
  QColor text() const;
  QColor textSecondary() const;
  QColor separator() const;
  QColor accent() const;
  QColor onAccent() const;
  QColor danger() const;
  QColor focus() const;
  QColor brand() const;

  qreal fontBase() const;
  qreal fontCaption() const { return fontBase() * 0.85; }
  qreal fontTitle() const { return fontBase() * 1.25; }
  qreal fontHeadline() const { return fontBase() * 1.6; }
  qreal fontDisplay() const { return fontBase() * 2.4; }
  int spacing() const { return 8; }
  int radius() const { return 14; }
  int wideWidth() const { return 900; }
  int levelRevision() const { return levelRevision_; }

  // The level's colour and text from the level table (level 1..10); grey
  // and the number for a level outside it.
  Q_INVOKABLE QColor levelColor(int level) const;
  Q_INVOKABLE QString levelText(int level) const;
  // Black or white, whichever reads better on the level's colour.
  Q_INVOKABLE QColor levelTextColor(int level) const;
  // The colour of an average such as 6.4, mixed from the two levels around it.
  Q_INVOKABLE QColor averageColor(double level) const;
  // Black or white, whichever reads better on `color`.
  Q_INVOKABLE QColor readableOn(const QColor& color) const;

  // Re-reads the level table (after the level editor saved).
  Q_INVOKABLE void reloadLevels();

 Q_SIGNALS:
  void modeChanged();
  void paletteChanged();
  void fontChanged();
  void levelsChanged();

 private Q_SLOTS:
  void portalSettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

 private:
  void askDesktopColorScheme();
  bool eventFilter(QObject* watched, QEvent* event) override;

  std::shared_ptr<UserDefaults> defaults_;
  QString mode_ = QStringLiteral("system");
  bool systemDark_ = false;
  int levelRevision_ = 0;
  QList<QColor> levelColors_;  // index 0 is level 1
  QStringList levelTexts_;
  ScopedObserver modelObserver_;
};

}  // namespace lumeo::gui
