#include "app/StatusMenu.h"

#include <QAction>
#include <QActionGroup>
#include <QCursor>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>

namespace norrow {

StatusMenu::StatusMenu(std::function<void(const MenuItem&)> onChoose,
                       std::function<void()> aboutToShow)
    : onChoose_(std::move(onChoose)) {
    connect(&menu_, &QMenu::aboutToShow, this, std::move(aboutToShow));
    tray_.setIcon(icon());
    tray_.setToolTip(QStringLiteral("Norrow"));
    tray_.setContextMenu(&menu_);
    // A left click opens the same menu as the right one, as a menu-bar item would.
    connect(&tray_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) popUp();
            });
    tray_.show();
}

StatusMenu::~StatusMenu() {
    tray_.setContextMenu(nullptr);
}

QIcon StatusMenu::icon(bool badge) {
    QIcon image;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(QStringLiteral(":/icons/NorrowMenu-%1.png").arg(size));
        if (badge) {
            // A dot in the top-right corner, a third of the icon across.
            QPainter painter(&pixmap);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0xE5, 0x48, 0x4D));
            const qreal dot = size / 3.0;
            painter.drawEllipse(QRectF(size - dot - size / 16.0, size / 16.0, dot, dot));
        }
        image.addPixmap(pixmap);
    }
    // On macOS a mask image follows the menu bar's light or dark appearance; the badge keeps
    // its colour.
    image.setIsMask(!badge);
    return image;
}

void StatusMenu::setBadge(bool on) {
    if (on == badge_) return;
    badge_ = on;
    tray_.setIcon(icon(on));
}

void StatusMenu::show(const std::vector<MenuItem>& items) {
    // Submenus and groups are the menu's children, which clearing its actions does not delete.
    // They go at once: a later deletion would wait behind a burst of events and pile up. No
    // signal of theirs is running here, since chosen items act only once the menu is closed.
    qDeleteAll(menu_.findChildren<QMenu*>(Qt::FindDirectChildrenOnly));
    qDeleteAll(menu_.findChildren<QActionGroup*>(Qt::FindDirectChildrenOnly));
    menu_.clear();
    fill(menu_, items);
}

void StatusMenu::fill(QMenu& menu, const std::vector<MenuItem>& items) {
    menu.setToolTipsVisible(true);
    QActionGroup* choices = nullptr;
    for (const MenuItem& item : items) {
        if (item.separator) {
            menu.addSeparator();
            continue;
        }
        const QString title = QString::fromStdString(item.title);
        QAction* action = nullptr;
        if (!item.submenu.empty()) {
            auto* sub = new QMenu(title, &menu_);
            menu.addMenu(sub);
            fill(*sub, item.submenu);
            action = sub->menuAction();
        } else {
            action = menu.addAction(title);
        }
        action->setEnabled(item.enabled);
        if (item.mark == MenuItem::Mark::choice) {
            // Choices among siblings look like radio buttons; none of them need be on.
            if (!choices) {
                choices = new QActionGroup(&menu);
                choices->setExclusionPolicy(QActionGroup::ExclusionPolicy::ExclusiveOptional);
            }
            choices->addAction(action);
        }
        action->setCheckable(item.mark != MenuItem::Mark::none || item.checked);
        action->setChecked(item.checked);
        if (!item.toolTip.empty()) action->setToolTip(QString::fromStdString(item.toolTip));
        if (!item.keyEquivalent.empty())
            action->setShortcut(
                QKeySequence(QStringLiteral("Ctrl+") + QString::fromStdString(item.keyEquivalent)));
        // Queued, so the action runs once the menu has closed: it may rebuild the menu and
        // so delete the very item that was chosen.
        if (item.action && item.submenu.empty())
            connect(
                action, &QAction::triggered, this, [this, item] { onChoose_(item); },
                Qt::QueuedConnection);
    }
}

void StatusMenu::popUp() {
    const QRect place = tray_.geometry();
    QPoint at = place.isValid() ? place.bottomLeft() : QCursor::pos();
    if (const QScreen* screen = QGuiApplication::screenAt(at)) {
        const QRect available = screen->availableGeometry();
        const QSize size = menu_.sizeHint();
        at.setX(std::min(at.x(), available.right() - size.width()));
        at.setY(std::min(std::max(at.y(), available.top()), available.bottom() - size.height()));
    }
    menu_.popup(at);
}

} // namespace norrow
