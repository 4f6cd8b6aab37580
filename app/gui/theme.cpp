#include "theme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QEvent>
#include <QFont>
#include <QGuiApplication>
#include <QPalette>
#include <cmath>

#include "capture/mood_levels_presentation.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "qt_convert.h"
#include "store/notification_names.h"

namespace lumeo::gui {

namespace {

constexpr const char* kPortalService = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kPortalSettings = "org.freedesktop.portal.Settings";

// The portal's color-scheme: 0 no preference, 1 prefer dark, 2 prefer light.
// The answer of Read comes wrapped in one or two variants, depending on the
// portal's version.
bool prefersDark(QVariant value) {
  while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
    value = value.value<QDBusVariant>().variant();
  return value.toUInt() == 1;
}

}  // namespace

Theme::Theme(std::shared_ptr<UserDefaults> defaults, QObject* parent)
    : QObject(parent), defaults_(std::move(defaults)) {
  if (defaults_) {
    if (auto stored = defaults_->stringForKey(kColorSchemeKey)) {
      if (*stored == "light" || *stored == "dark") mode_ = QString::fromStdString(*stored);
    }
  }
  // Without a portal, a dark desktop palette counts as the preference.
  systemDark_ = QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
  askDesktopColorScheme();
  reloadLevels();
  // The level editor and every save post this; a changed table shows at once.
  modelObserver_ = ScopedObserver(NotificationCenter::defaultCenter(), MoodModelHasChangedNotification,
                                  nullptr, [this](const Notification&) { reloadLevels(); });
  if (qApp) qApp->installEventFilter(this);
}

Theme::~Theme() = default;

void Theme::askDesktopColorScheme() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  QDBusMessage read = QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalSettings, "Read");
  read << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme");
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(read, 2000), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
    QDBusPendingReply<QVariant> reply = *call;
    if (!reply.isError()) setSystemPrefersDark(prefersDark(reply.value()));
    call->deleteLater();
  });
  bus.connect(kPortalService, kPortalPath, kPortalSettings, "SettingChanged", this,
              SLOT(portalSettingChanged(QString, QString, QDBusVariant)));
}

void Theme::portalSettingChanged(const QString& group, const QString& key, const QDBusVariant& value) {
  if (group == QLatin1String("org.freedesktop.appearance") && key == QLatin1String("color-scheme"))
    setSystemPrefersDark(prefersDark(value.variant()));
}

bool Theme::eventFilter(QObject* watched, QEvent* event) {
  if (watched == qApp && event->type() == QEvent::ApplicationFontChange) Q_EMIT fontChanged();
  return QObject::eventFilter(watched, event);
}

void Theme::setMode(const QString& mode) {
  QString next =
      (mode == QLatin1String("light") || mode == QLatin1String("dark")) ? mode : QStringLiteral("system");
  if (next == mode_) return;
  const bool wasDark = dark();
  mode_ = next;
  if (defaults_) {
    OptionalError error = next == QLatin1String("system")
                              ? defaults_->removeObjectForKey(kColorSchemeKey)
                              : defaults_->setString(kColorSchemeKey, next.toStdString());
    if (error) LUMEO_LOG_WARNING("the colour scheme could not be kept: %@", error->description);
    (void)defaults_->synchronize();
  }
  Q_EMIT modeChanged();
  if (wasDark != dark()) Q_EMIT paletteChanged();
}

bool Theme::dark() const {
  if (mode_ == QLatin1String("dark")) return true;
  if (mode_ == QLatin1String("light")) return false;
  return systemDark_;
}

void Theme::setSystemPrefersDark(bool prefersDark) {
  if (prefersDark == systemDark_) return;
  const bool wasDark = dark();
  systemDark_ = prefersDark;
  if (wasDark != dark()) Q_EMIT paletteChanged();
}

// Calm, warm neutrals; the level colours carry the content.
QColor Theme::background() const {
  return dark() ? QColor(0x14, 0x16, 0x1a) : QColor(0xf6, 0xf3, 0xee);
}
QColor Theme::surface() const {
  return dark() ? QColor(0x1f, 0x22, 0x27) : QColor(0xff, 0xff, 0xff);
}
QColor Theme::surfaceAlt() const {
  return dark() ? QColor(0x2a, 0x2e, 0x34) : QColor(0xee, 0xea, 0xe3);
}
QColor Theme::text() const {
  return dark() ? QColor(0xee, 0xec, 0xe8) : QColor(0x1e, 0x1c, 0x19);
}
QColor Theme::textSecondary() const {
  return dark() ? QColor(0xa3, 0x9f, 0x98) : QColor(0x68, 0x63, 0x5b);
}
QColor Theme::separator() const {
  return dark() ? QColor(0x34, 0x38, 0x3f) : QColor(0xe3, 0xde, 0xd6);
}
QColor Theme::accent() const {
  return dark() ? QColor(0xf2, 0x7a, 0x45) : QColor(0xc4, 0x4a, 0x14);
}
QColor Theme::onAccent() const {
  return dark() ? QColor(0x1a, 0x10, 0x0b) : QColor(0xff, 0xff, 0xff);
}
QColor Theme::danger() const {
  return dark() ? QColor(0xff, 0x6b, 0x6b) : QColor(0xc0, 0x23, 0x23);
}
QColor Theme::focus() const {
  return dark() ? QColor(0x8a, 0xb4, 0xff) : QColor(0x1f, 0x5f, 0xd6);
}
QColor Theme::brand() const {
  return QColor(213, 81, 23);
}

qreal Theme::fontBase() const {
  const QFont font = QGuiApplication::font();
  qreal points = font.pointSizeF();
  if (points <= 0) points = font.pixelSize() * 0.75;
  return points > 0 ? points : 10.5;
}

void Theme::reloadLevels() {
  MoodLevelsPresentation levels;
  QList<QColor> colors;
  QStringList texts;
  for (int level = 1; level <= kMoodLevelCount; ++level) {
    auto presentation = levels.presentationForMoodLevel(level);
    colors.append(presentation ? toQColor(presentation->baseColor) : QColor(Qt::gray));
    texts.append(presentation ? QString::fromStdString(presentation->text) : QString::number(level));
  }
  if (colors == levelColors_ && texts == levelTexts_) return;
  levelColors_ = colors;
  levelTexts_ = texts;
  ++levelRevision_;
  Q_EMIT levelsChanged();
}

QColor Theme::levelColor(int level) const {
  if (level < 1 || level > levelColors_.size()) return QColor(Qt::gray);
  return levelColors_[level - 1];
}

QString Theme::levelText(int level) const {
  if (level < 1 || level > levelTexts_.size()) return QString::number(level);
  return levelTexts_[level - 1];
}

QColor Theme::readableOn(const QColor& color) const {
  // Relative luminance as WCAG computes it; the threshold picks the text
  // colour with the larger contrast ratio.
  auto channel = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
  const double l =
      0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) + 0.0722 * channel(color.blueF());
  return l > 0.179 ? QColor(0x1e, 0x1c, 0x19) : QColor(Qt::white);
}

QColor Theme::levelTextColor(int level) const {
  return readableOn(levelColor(level));
}

QColor Theme::averageColor(double level) const {
  auto color = MoodLevelsPresentation().interpolatedColorForMoodLevel(level);
  return color ? toQColor(*color) : QColor(Qt::gray);
}

}  // namespace lumeo::gui
