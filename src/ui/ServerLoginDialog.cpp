#include "ui/ServerLoginDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include <map>

#include "ui/ByteText.h"
#include "util/Dispatch.h"

namespace jorvane::ui {

namespace {

constexpr const char* kChoiceProperty = "jorvaneChoice";

void bringForward(QWidget& window) {
    window.setWindowFlag(Qt::WindowStaysOnTopHint);
    window.setAttribute(Qt::WA_DeleteOnClose);
    window.show();
    window.raise();
    window.activateWindow();
}

}  // namespace

ServerLoginDialog::ServerLoginDialog(const ServerLoginRequest& request, QWidget* parent)
    : QDialog(parent), request_(request) {
    setWindowTitle(QStringLiteral("Connect to Server"));
    auto* layout = new QVBoxLayout(this);
    // The server's text names the user and the host: plain text, never markup.
    auto* message = new QLabel(fromBytes(request.message), this);
    message->setTextFormat(Qt::PlainText);
    message->setWordWrap(true);
    layout->addWidget(message);
    if (request.retry) {
        auto* refused = new QLabel(QStringLiteral("The server refused the login. Try again."), this);
        refused->setTextFormat(Qt::PlainText);
        layout->addWidget(refused);
    }

    auto* form = new QFormLayout;
    if (request.needsUser) {
        user_ = new QLineEdit(fromBytes(request.user), this);
        user_->setObjectName(QStringLiteral("user"));
        form->addRow(QStringLiteral("User name:"), user_);
    }
    if (request.needsDomain) {
        domain_ = new QLineEdit(fromBytes(request.domain), this);
        domain_->setObjectName(QStringLiteral("domain"));
        form->addRow(QStringLiteral("Domain:"), domain_);
    }
    if (request.needsPassword) {
        password_ = new QLineEdit(this);
        password_->setObjectName(QStringLiteral("password"));
        password_->setEchoMode(QLineEdit::Password);
        form->addRow(QStringLiteral("Password:"), password_);
    }
    layout->addLayout(form);
    if (request.anonymousAllowed) {
        anonymous_ = new QCheckBox(QStringLiteral("Connect anonymously"), this);
        connect(anonymous_, &QCheckBox::toggled, this, [this] { updateFields(); });
        layout->addWidget(anonymous_);
    }
    if (request.savingAllowed && request.needsPassword) {
        remember_ = new QCheckBox(QStringLiteral("Remember password"), this);
        layout->addWidget(remember_);
    }

    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(QDialogButtonBox::Cancel);
    QPushButton* connectButton = buttons->addButton(QStringLiteral("Connect"), QDialogButtonBox::AcceptRole);
    connectButton->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    // The first thing left to type has the keyboard.
    if (user_ && user_->text().isEmpty())
        user_->setFocus();
    else if (password_)
        password_->setFocus();
    else if (user_)
        user_->setFocus();
}

void ServerLoginDialog::updateFields() {
    const bool anonymous = anonymous_ && anonymous_->isChecked();
    for (QWidget* field : {static_cast<QWidget*>(user_), static_cast<QWidget*>(password_),
                           static_cast<QWidget*>(domain_), static_cast<QWidget*>(remember_)})
        if (field) field->setEnabled(!anonymous);
}

ServerLoginAnswer ServerLoginDialog::answer() const {
    ServerLoginAnswer answer;
    if (result() != QDialog::Accepted) return answer;
    if (anonymous_ && anonymous_->isChecked()) {
        answer.choice = ServerLoginAnswer::Choice::anonymous;
        return answer;
    }
    answer.choice = ServerLoginAnswer::Choice::connect;
    answer.user = user_ ? toBytes(user_->text()) : request_.user;
    answer.password = password_ ? toBytes(password_->text()) : std::string();
    answer.domain = domain_ ? toBytes(domain_->text()) : request_.domain;
    answer.remember = remember_ && remember_->isChecked();
    return answer;
}

QMessageBox* makeServerQuestionBox(const ServerQuestion& question, QWidget* parent) {
    auto* box = new QMessageBox(parent);
    box->setWindowTitle(QStringLiteral("Connect to Server"));
    box->setIcon(QMessageBox::Question);
    box->setTextFormat(Qt::PlainText);
    box->setText(fromBytes(question.message));
    QPushButton* first = nullptr;
    // Added last first, so that the first answer ends up at the right.
    for (std::size_t i = question.choices.size(); i-- > 0;) {
        QPushButton* button = box->addButton(fromBytes(question.choices[i]), QMessageBox::ActionRole);
        button->setProperty(kChoiceProperty, static_cast<qulonglong>(i));
        if (i == 0) first = button;
    }
    if (first) box->setDefaultButton(first);
    return box;
}

std::optional<std::size_t> chosenAnswer(const QMessageBox& box) {
    const QAbstractButton* clicked = box.clickedButton();
    if (!clicked || !clicked->property(kChoiceProperty).isValid()) return std::nullopt;
    return static_cast<std::size_t>(clicked->property(kChoiceProperty).toULongLong());
}

// The dialogs showing now, by ticket; main thread only.
struct QtServerLoginPrompt::Open {
    std::map<Ticket, QPointer<QWidget>> windows;
};

QtServerLoginPrompt::QtServerLoginPrompt() : open_(std::make_shared<Open>()) {}

QtServerLoginPrompt::~QtServerLoginPrompt() = default;

ServerLoginPrompt::Ticket QtServerLoginPrompt::ask(const ServerLoginRequest& request, Reply reply) {
    const Ticket ticket = next_.fetch_add(1);
    dispatch::performOnMainThread([open = open_, ticket, request, reply = std::move(reply)] {
        auto* dialog = new ServerLoginDialog(request);
        open->windows[ticket] = dialog;
        // Accepted, cancelled, closed or withdrawn: one answer.
        QObject::connect(dialog, &QDialog::finished, dialog, [open, ticket, dialog, reply] {
            open->windows.erase(ticket);
            if (reply) reply(dialog->answer());
        });
        bringForward(*dialog);
    });
    return ticket;
}

ServerLoginPrompt::Ticket QtServerLoginPrompt::choose(const ServerQuestion& question, ChoiceReply reply) {
    const Ticket ticket = next_.fetch_add(1);
    dispatch::performOnMainThread([open = open_, ticket, question, reply = std::move(reply)] {
        QMessageBox* box = makeServerQuestionBox(question);
        open->windows[ticket] = box;
        QObject::connect(box, &QDialog::finished, box, [open, ticket, box, reply] {
            open->windows.erase(ticket);
            if (reply) reply(chosenAnswer(*box));
        });
        bringForward(*box);
    });
    return ticket;
}

void QtServerLoginPrompt::withdraw(Ticket ticket) {
    // After the showing: both go through the main queue, in order.
    dispatch::performOnMainThread([open = open_, ticket] {
        const auto found = open->windows.find(ticket);
        if (found == open->windows.end()) return;
        if (auto* dialog = qobject_cast<QDialog*>(found->second.data())) dialog->reject();
    });
}

}  // namespace jorvane::ui
