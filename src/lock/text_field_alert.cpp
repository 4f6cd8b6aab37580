// The process's text-field alert presenter.
#include "lock/text_field_alert.h"

#include <mutex>

namespace lumeo {

namespace {

class SilentTextFieldAlertPresenter : public TextFieldAlertPresenter {
 public:
  void presentTextFieldAlert(Screen&, const TextFieldAlertRequest&,
                             std::function<void(int, const std::string&)>) override {}
};

std::shared_ptr<TextFieldAlertPresenter>& slot() {
  static std::shared_ptr<TextFieldAlertPresenter> presenter =
      std::make_shared<SilentTextFieldAlertPresenter>();
  return presenter;
}

}  // namespace

TextFieldAlertPresenter& TextFieldAlertPresenter::shared() {
  return *slot();
}

void TextFieldAlertPresenter::setShared(std::shared_ptr<TextFieldAlertPresenter> presenter) {
  slot() = presenter ? std::move(presenter) : std::make_shared<SilentTextFieldAlertPresenter>();
}

}  // namespace lumeo
