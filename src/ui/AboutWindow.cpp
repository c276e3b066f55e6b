#include "ui/AboutWindow.h"

#include <QDesktopServices>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

#include "ui/BarImages.h"
#include "ui/CentredWindow.h"

namespace jorvane::ui {

bool DesktopURLOpener::openURL(const std::string& url) {
    return QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
}

AboutWindow::AboutWindow(Dependencies dependencies, QWidget* parent)
    : QWidget(parent, Qt::Window),
      urls_(dependencies.urls ? std::move(dependencies.urls) : std::make_shared<DesktopURLOpener>()) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QString::fromUtf8(kTitle));
    setObjectName(QStringLiteral("JorvaneAbout"));

    controller_ = std::make_unique<AboutWindowController>(AboutWindowController::Dependencies{
        dependencies.alerts, dependencies.application, *urls_, std::move(dependencies.executable),
        std::move(dependencies.installation), std::move(dependencies.version)});

    auto* icon = new QLabel;
    icon->setPixmap(applicationIcon().pixmap(64, 64));
    icon->setAlignment(Qt::AlignCenter);
    auto* name = new QLabel(QStringLiteral("Jorvane"));
    QFont nameFont = name->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.6);
    nameFont.setBold(true);
    name->setFont(nameFont);
    name->setAlignment(Qt::AlignCenter);
    version_ = new QLabel(QString::fromStdString(controller_->versionString()));
    version_->setAlignment(Qt::AlignCenter);
    version_->setTextInteractionFlags(Qt::TextSelectableByMouse);

    homepage_ = new QPushButton(QStringLiteral("Homepage"));
    homepage_->setToolTip(QString::fromUtf8(AboutWindowController::kHomepage.data(),
                                            static_cast<qsizetype>(AboutWindowController::kHomepage.size())));
    contact_ = new QPushButton(QStringLiteral("Send Feedback"));
    uninstall_ = new QPushButton(QStringLiteral("Uninstall\u2026"));
    quit_ = new QPushButton(QStringLiteral("Quit Jorvane"));

    auto* buttons = new QGridLayout;
    buttons->addWidget(homepage_, 0, 0);
    buttons->addWidget(contact_, 0, 1);
    buttons->addWidget(uninstall_, 1, 0);
    buttons->addWidget(quit_, 1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(icon);
    layout->addWidget(name);
    layout->addWidget(version_);
    layout->addSpacing(8);
    layout->addLayout(buttons);

    connect(homepage_, &QPushButton::clicked, this, [this] { controller_->visitHomepage(); });
    connect(contact_, &QPushButton::clicked, this, [this] { controller_->contact(); });
    connect(uninstall_, &QPushButton::clicked, this, [this] { controller_->uninstall(); });
    connect(quit_, &QPushButton::clicked, this, [this] { controller_->quit(); });
}

AboutWindow* AboutWindow::open(Dependencies dependencies) {
    auto* window = new AboutWindow(std::move(dependencies));
    showCentred(*window);
    return window;
}

}  // namespace jorvane::ui
