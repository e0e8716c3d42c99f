#pragma once

#include "toolkit/window.h"

#include <string>
#include <utility>
#include <vector>

namespace quilla::test {

using Log = std::vector<std::string>;

/// A window object that writes down what reaches it and then does what its class does.
template <typename Base>
class Recorder : public Base {
  public:
    Recorder(Log& target, std::string objectName) : log_(target), name_(std::move(objectName)) {}

    LRESULT OnCommand(int id, int code, HWND control) override {
        log_.push_back(name_ + " command " + std::to_string(id) + "/" + std::to_string(code));
        return id == handledCommand ? 0 : Base::OnCommand(id, code, control);
    }

    void OnUpdateCommand(BCommandState& state) override {
        if (state.id == disabledCommand)
            state.Enable(false);
        Base::OnUpdateCommand(state);
    }

    LRESULT OnMessage(BMessage& message) override {
        if (message.message == loggedMessage)
            log_.push_back(name_ + " message");
        return Base::OnMessage(message);
    }

    int handledCommand = -1;
    int disabledCommand = -1;
    UINT loggedMessage = 0;

  private:
    Log& log_;
    std::string name_;
};

} // namespace quilla::test
