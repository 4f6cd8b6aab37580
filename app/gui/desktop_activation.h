// The desktop's way to start and reach Lumeo: the application answers on
// the session bus as org.lumeo.Lumeo (org.freedesktop.Application, as a
// desktop file with DBusActivatable asks), so the launcher, the "New record"
// action and a reminder's action reach the window that is already open
// instead of starting a second one on the same journal.
#pragma once

#include <QDBusAbstractAdaptor>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace lumeo::gui {

inline constexpr const char* kApplicationId = "org.lumeo.Lumeo";
inline constexpr const char* kApplicationPath = "/org/lumeo/Lumeo";
// The desktop file's action that opens the capture tab.
inline constexpr const char* kNewRecordAction = "new-record";

class DesktopActivation : public QObject {
  Q_OBJECT
 public:
  using QObject::QObject;

  // When another lumeo-gui owns the name on this bus, asks it to come
  // forward (with the new-record action when `newRecord`) and returns true:
  // this process then has nothing to do. False without a bus or owner.
  bool forwardToRunningInstance(bool newRecord);
  // Takes the name and answers on it; false without a session bus or when
  // the name is taken.
  bool registerService();

 Q_SIGNALS:
  // The desktop asked the window to come forward.
  void activated();
  // The desktop asked for a new record (the capture tab).
  void newRecordRequested();
};

// org.freedesktop.Application on the activation object.
class ApplicationAdaptor : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
 public:
  explicit ApplicationAdaptor(DesktopActivation* owner);

 public Q_SLOTS:
  void Activate(const QVariantMap& platformData);
  void Open(const QStringList& uris, const QVariantMap& platformData);
  void ActivateAction(const QString& name, const QVariantList& parameter, const QVariantMap& platformData);

 private:
  DesktopActivation* owner_;
};

}  // namespace lumeo::gui
