#include "ui/PreferencesWindow.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "ui/CentredWindow.h"
#include "ui/ShortcutRecorderWidget.h"

namespace jorvane::ui {

PreferencesWindow::PreferencesWindow(Dependencies dependencies, QWidget* parent) : QWidget(parent, Qt::Window) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QString::fromUtf8(kTitle));
    setObjectName(QStringLiteral("JorvanePreferences"));
    const QString fileManager = QString::fromStdString(dependencies.fileManager);

    controller_ = std::make_unique<PreferencesController>(PreferencesController::Dependencies{
        dependencies.defaults, dependencies.executablePath, std::move(dependencies.about),
        std::move(dependencies.settingsChanged), std::move(dependencies.forgetVisitedFolders)});

    recorder_ =
        new ShortcutRecorderWidget(&dependencies.defaults, &dependencies.alerts, std::move(dependencies.native));
    autostart_ = new QCheckBox(QStringLiteral("Start Jorvane at login"));
    byHotkey_ = boundBox(QStringLiteral("Open the address bar with the hot key"), settings::keys::activateByHotkey);
    byTitlebar_ = boundBox(QStringLiteral("Open the address bar with a click on a window's title"),
                           settings::keys::activateByTitlebar);
    shortcuts_ =
        boundBox(QStringLiteral("Extra keys in %1: Ctrl+R, Ctrl+T, Ctrl+Shift+F, Ctrl+Shift+.").arg(fileManager),
                 settings::keys::inactiveShortcuts);
    folder_ = new QRadioButton(QStringLiteral("The folder the window shows"));
    selection_ = new QRadioButton(QStringLiteral("The item selected in %1").arg(fileManager));
    about_ = new QPushButton(QStringLiteral("About Jorvane"));
    remember_ = boundBox(QStringLiteral("Remember visited folders"), settings::keys::rememberVisitedFolders);
    forget_ = new QPushButton(QStringLiteral("Forget visited folders"));
    auto* visited = new QHBoxLayout;
    visited->addWidget(remember_);
    visited->addStretch();
    visited->addWidget(forget_);

    auto* choice = new QButtonGroup(this);
    choice->addButton(folder_);
    choice->addButton(selection_);
    auto* opensWith = new QGroupBox(QStringLiteral("When the address bar opens, it holds"));
    auto* opensWithLayout = new QVBoxLayout(opensWith);
    opensWithLayout->addWidget(folder_);
    opensWithLayout->addWidget(selection_);

    auto* hotKeyRow = new QFormLayout;
    hotKeyRow->addRow(QStringLiteral("Hot key:"), recorder_);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(about_);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(hotKeyRow);
    layout->addWidget(byHotkey_);
    layout->addWidget(byTitlebar_);
    layout->addWidget(shortcuts_);
    layout->addWidget(opensWith);
    layout->addLayout(visited);
    layout->addWidget(autostart_);
    layout->addStretch();
    layout->addLayout(buttons);

    controller_->setWindow(this);
    controller_->windowLoaded();
    autostart_->setChecked(controller_->autostarts());
    (controller_->opensWithFolder() ? folder_ : selection_)->setChecked(true);

    connect(autostart_, &QCheckBox::toggled, this, [this](bool on) {
        controller_->setAutostarts(on);
        // The autostart folder is the only record: show what it holds now.
        const QSignalBlocker quiet(autostart_);
        autostart_->setChecked(controller_->autostarts());
    });
    connect(folder_, &QRadioButton::toggled, this, [this](bool on) { controller_->setOpensWithFolder(on); });
    connect(about_, &QPushButton::clicked, this, [this] { controller_->about(); });
    connect(forget_, &QPushButton::clicked, this, [this] { controller_->forgetVisitedFolders(); });
}

PreferencesWindow::~PreferencesWindow() {
    // The recorder (a child) goes after the controller; detach it first.
    if (controller_) controller_->setWindow(nullptr);
}

QCheckBox* PreferencesWindow::boundBox(const QString& text, const settings::Key<bool>& key) {
    auto* box = new QCheckBox(text);
    box->setChecked(controller_->boolValue(key));
    connect(box, &QCheckBox::toggled, this, [this, &key](bool on) { controller_->setBoolValue(key, on); });
    return box;
}

PreferencesWindow* PreferencesWindow::open(Dependencies dependencies) {
    auto* window = new PreferencesWindow(std::move(dependencies));
    showCentred(*window);
    return window;
}

ShortcutControl& PreferencesWindow::hotkeyRecorder() { return recorder_->control(); }

void PreferencesWindow::closeWindow() {
    if (!closing_) QWidget::close();
}

void PreferencesWindow::closeEvent(QCloseEvent* event) {
    if (!closing_) {
        closing_ = true;
        // Saves, detaches, then closes (which is this close, already under way).
        controller_->close();
    }
    event->accept();
}

}  // namespace jorvane::ui
