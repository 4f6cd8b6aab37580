#include "desktop_activation.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace lumeo::gui {

namespace {
constexpr const char* kApplicationInterface = "org.freedesktop.Application";
}

bool DesktopActivation::forwardToRunningInstance(bool newRecord) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected() || !bus.interface()) return false;
  auto owner = bus.interface()->isServiceRegistered(QString::fromLatin1(kApplicationId));
  if (!owner.isValid() || !owner.value()) return false;
  QDBusMessage call = newRecord ? QDBusMessage::createMethodCall(kApplicationId, kApplicationPath,
                                                                 kApplicationInterface, "ActivateAction")
                                : QDBusMessage::createMethodCall(kApplicationId, kApplicationPath,
                                                                 kApplicationInterface, "Activate");
  if (newRecord) call << QString::fromLatin1(kNewRecordAction) << QVariantList{};
  call << QVariantMap{};
  QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
  return reply.type() == QDBusMessage::ReplyMessage;
}

bool DesktopActivation::registerService() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return false;
  new ApplicationAdaptor(this);
  if (!bus.registerObject(QString::fromLatin1(kApplicationPath), this)) return false;
  return bus.registerService(QString::fromLatin1(kApplicationId));
}

ApplicationAdaptor::ApplicationAdaptor(DesktopActivation* owner)
    : QDBusAbstractAdaptor(owner), owner_(owner) {}

void ApplicationAdaptor::Activate(const QVariantMap&) {
  Q_EMIT owner_->activated();
}

void ApplicationAdaptor::Open(const QStringList&, const QVariantMap&) {
  Q_EMIT owner_->activated();
}

void ApplicationAdaptor::ActivateAction(const QString& name, const QVariantList&, const QVariantMap&) {
  if (name == QLatin1String(kNewRecordAction)) {
    Q_EMIT owner_->newRecordRequested();
  } else {
    Q_EMIT owner_->activated();
  }
}

}  // namespace lumeo::gui
