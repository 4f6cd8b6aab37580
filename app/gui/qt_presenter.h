// The core's Presenter on Qt: each alert, action sheet or share sheet a
// controller asks for becomes a request that QML's AlertHost shows as a
// dialog; the user's choice comes back through answer*(), which calls the
// controller's handler on the main queue's thread. Requests queue up: a
// second alert waits until the first is answered, as on a phone.
#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <deque>
#include <functional>
#include <map>

#include "lock/text_field_alert.h"
#include "shell/presenter.h"

namespace lumeo::gui {

class QtPresenter : public QObject, public Presenter, public TextFieldAlertPresenter {
  Q_OBJECT
  // The request on screen: {id, kind ("alert", "sheet", "share"), title,
  // message, actions: [{title, result, style ("default", "cancel",
  // "destructive")}], text, photo}; empty when none.
  Q_PROPERTY(QVariantMap current READ current NOTIFY currentChanged)
 public:
  explicit QtPresenter(QObject* parent = nullptr);

  void presentAlert(Screen& from, const AlertRequest& request,
                    std::function<void(int result)> handler) override;
  void presentShareSheet(Screen& from, const ShareSheetRequest& request,
                         std::function<void(const std::string& activityType)> completion) override;
  void endEditing() override;
  // An alert with one text field (the recovery key's); kind "textfield",
  // with "placeholder" and "needsText" (results enabled only with text).
  void presentTextFieldAlert(Screen& from, const TextFieldAlertRequest& request,
                             std::function<void(int result, const std::string& text)> handler) override;

  QVariantMap current() const;
  int pendingCount() const { return static_cast<int>(queue_.size()); }

  // The user chose the action with this result (alerts and sheets).
  Q_INVOKABLE void answer(int id, int result);
  // The user chose a share activity ("" when the sheet was closed).
  // The user chose a button of a text-field alert with this text.
  Q_INVOKABLE void answerText(int id, int result, const QString& text);
  Q_INVOKABLE void answerShare(int id, const QString& activityType);
  // Carries out one of the desktop's share actions for the request on
  // screen; returns an error text, or "" when it worked. `target` is the file
  // to save to for the save action.
  Q_INVOKABLE QString performShareActivity(const QString& activityType, const QString& target);

 Q_SIGNALS:
  void currentChanged();
  // The keyboard focus should leave text fields.
  void editingEnded();

 private:
  struct Pending {
    int id = 0;
    QVariantMap view;
    std::function<void(int)> alertHandler;
    std::function<void(const std::string&)> shareHandler;
    std::function<void(int, const std::string&)> textHandler;
    ShareSheetRequest share;
  };
  void push(Pending pending);
  std::optional<Pending> takeCurrent(int id);

  std::deque<Pending> queue_;
  int nextId_ = 1;
};

}  // namespace lumeo::gui
