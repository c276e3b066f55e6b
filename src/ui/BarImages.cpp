#include "ui/BarImages.h"

#include <QApplication>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>

#include <filesystem>
#include <string>
#include <system_error>

#include "ui/ByteText.h"
#include "util/Dispatch.h"

namespace jorvane::ui {

namespace {

// Drawn at twice the size the bar uses, so it stays sharp on scaled screens.
constexpr int kDrawnSide = 32;

QPixmap canvas() {
    QPixmap pixmap(kDrawnSide, kDrawnSide);
    pixmap.fill(Qt::transparent);
    return pixmap;
}

QIcon themeIcon(const char* name, QAbstractFileIconProvider::IconType fallback) {
    static QFileIconProvider provider;
    return QIcon::fromTheme(QString::fromLatin1(name), provider.icon(fallback));
}

}  // namespace

QIcon searchIcon() {
    static const QIcon icon = [] {
        QPixmap pixmap = canvas();
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        QPen pen(QColor(225, 225, 225));
        pen.setWidthF(3.4);
        pen.setCapStyle(Qt::RoundCap);
        painter.setPen(pen);
        painter.drawEllipse(QRectF(4, 4, 17, 17));
        pen.setWidthF(4.6);
        painter.setPen(pen);
        painter.drawLine(QPointF(19.5, 19.5), QPointF(27, 27));
        return QIcon(pixmap);
    }();
    return icon;
}

QIcon iconForPath(std::string_view path) {
    const std::string bytes(path);
    if (bytes.starts_with("trash:")) return themeIcon("user-trash", QAbstractFileIconProvider::Trashcan);
    if (bytes.find("://") != std::string::npos) return themeIcon("folder-remote", QAbstractFileIconProvider::Network);
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(bytes, error);
    if (error || std::filesystem::is_directory(status)) return themeIcon("folder", QAbstractFileIconProvider::Folder);
    static QFileIconProvider provider;
    const QIcon icon = provider.icon(QFileInfo(fromBytes(bytes)));
    return icon.isNull() ? themeIcon("text-x-generic", QAbstractFileIconProvider::File) : icon;
}

void IconLookup::show(const BarImage& image, std::function<void(const QIcon&)> apply) {
    const std::uint64_t serial = ++serial_;
    const std::string& path = image.path;
    if (image.kind != BarImage::Kind::fileIcon || path.starts_with("trash:") || path.find("://") != std::string::npos) {
        apply(iconFor(image));
        return;
    }
    apply(themeIcon("folder", QAbstractFileIconProvider::Folder));
    dispatch::globalQueue().async([weak = weak_from_this(), serial, path, apply = std::move(apply)] {
        std::error_code error;
        const std::filesystem::file_status status = std::filesystem::status(path, error);
        QString iconName;
        if (!error && !std::filesystem::is_directory(status)) {
            // The database is safe to use from any thread; it reads the
            // file's first bytes when the name says nothing.
            iconName = QMimeDatabase().mimeTypeForFile(fromBytes(path)).iconName();
        }
        dispatch::performOnMainThread([weak, serial, iconName, apply] {
            const auto self = weak.lock();
            if (!self || self->serial_ != serial || iconName.isEmpty()) return;
            apply(QIcon::fromTheme(iconName, themeIcon("text-x-generic", QAbstractFileIconProvider::File)));
        });
    });
}

QIcon iconFor(const BarImage& image) {
    switch (image.kind) {
        case BarImage::Kind::search: return searchIcon();
        case BarImage::Kind::fileIcon: return iconForPath(image.path);
        case BarImage::Kind::none: break;
    }
    return {};
}

QIcon applicationIcon() {
    const QIcon windowIcon = QApplication::windowIcon();
    if (!windowIcon.isNull()) return windowIcon;
    static const QIcon icon = [] {
        QPixmap pixmap = canvas();
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        // A folder...
        QPainterPath folder;
        folder.moveTo(2, 9);
        folder.lineTo(12, 9);
        folder.lineTo(15, 12);
        folder.lineTo(30, 12);
        folder.lineTo(30, 29);
        folder.lineTo(2, 29);
        folder.closeSubpath();
        painter.fillPath(folder, QColor(92, 141, 212));
        // ...with a dark address bar across its top.
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(40, 40, 44));
        painter.drawRoundedRect(QRectF(0, 2, 32, 9), 3, 3);
        painter.setBrush(QColor(235, 235, 235));
        painter.drawRoundedRect(QRectF(4, 5, 15, 3), 1.5, 1.5);
        return QIcon(pixmap);
    }();
    return icon;
}

}  // namespace jorvane::ui
