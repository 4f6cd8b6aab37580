// Alerts with one text field (the recovery key's), which the shell's
// presenter does not have. The GUI shows a dialog, the CLI a prompt on the
// terminal, tests answer from a script.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "shell/presenter.h"

namespace lumeo {

class Screen;

struct TextFieldAlertRequest {
  std::string title;
  std::string message;
  std::string placeholder;
  std::vector<AlertAction> actions;
  // Results of the buttons that are enabled only while the field is not
  // empty (the presenter watches each change of the text).
  std::vector<int> resultsNeedingText;
};

class TextFieldAlertPresenter {
 public:
  virtual ~TextFieldAlertPresenter() = default;
  // Shows the alert over `from`; `handler` later gets the chosen button's
  // result and the field's text, on the main queue.
  virtual void presentTextFieldAlert(Screen& from, const TextFieldAlertRequest& request,
                                     std::function<void(int result, const std::string& text)> handler) = 0;

  // The process's presenter; without one, alerts are never answered.
  static TextFieldAlertPresenter& shared();
  static void setShared(std::shared_ptr<TextFieldAlertPresenter> presenter);
};

}  // namespace lumeo
