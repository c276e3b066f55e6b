#pragma once

// The questions a server asks while it is being connected, as small dialogs
// of the program's own: the login (user name, password, domain where the
// server wants one, "Connect anonymously" where it lets anonymous users in,
// "Remember password" where the desktop's keyring can keep it) and the
// server's questions with fixed answers (an unknown host key).
//
// QtServerLoginPrompt is the ServerLoginPrompt of the running program: asked
// from any thread, it shows the dialog on the main thread (through the main
// queue, which the Qt event loop drains) without blocking anyone, and
// answers when the user does. The dialogs stay above other windows and take
// the focus: the program has no window of its own to come from.

#include <QDialog>

#include <atomic>
#include <memory>

#include "filemanager/ServerLoginPrompt.h"

class QCheckBox;
class QLineEdit;
class QMessageBox;

namespace jorvane::ui {

class ServerLoginDialog final : public QDialog {
public:
    explicit ServerLoginDialog(const ServerLoginRequest& request, QWidget* parent = nullptr);

    // The answer for the dialog's result: cancel unless accepted.
    ServerLoginAnswer answer() const;

    // Each is null when the request did not ask for it.
    QLineEdit* userField() const { return user_; }
    QLineEdit* passwordField() const { return password_; }
    QLineEdit* domainField() const { return domain_; }
    QCheckBox* rememberBox() const { return remember_; }

private:
    void updateFields();

    ServerLoginRequest request_;
    QLineEdit* user_ = nullptr;
    QLineEdit* password_ = nullptr;
    QLineEdit* domain_ = nullptr;
    QCheckBox* anonymous_ = nullptr;
    QCheckBox* remember_ = nullptr;
};

// A server's question with its answers as buttons, the first the default;
// Escape answers none.
QMessageBox* makeServerQuestionBox(const ServerQuestion& question, QWidget* parent = nullptr);
// The index of the answer chosen in such a box; nothing for none.
std::optional<std::size_t> chosenAnswer(const QMessageBox& box);

class QtServerLoginPrompt final : public ServerLoginPrompt {
public:
    QtServerLoginPrompt();
    ~QtServerLoginPrompt() override;

    Ticket ask(const ServerLoginRequest& request, Reply reply) override;
    Ticket choose(const ServerQuestion& question, ChoiceReply reply) override;
    void withdraw(Ticket ticket) override;

    struct Open;

private:
    std::shared_ptr<Open> open_;
    std::atomic<Ticket> next_{1};
};

}  // namespace jorvane::ui
