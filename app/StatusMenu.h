#pragma once

#include "app/MenuModel.h"

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <functional>
#include <vector>

namespace norrow {

// The status item in the tray (the menu bar on macOS) and its menu, drawn from the plain
// menu model. The menu is never edited in place: every rebuild replaces all of it.
class StatusMenu : public QObject {
    Q_OBJECT
public:
    // `onChoose` runs when an enabled item with an action is chosen; `aboutToShow` just before
    // the menu opens, so the owner can rebuild it.
    StatusMenu(std::function<void(const MenuItem&)> onChoose, std::function<void()> aboutToShow);
    ~StatusMenu() override;

    void show(const std::vector<MenuItem>& items);
    // Marks the status item while any session waits on the user.
    void setBadge(bool on);
    bool badge() const { return badge_; }
    // Opens the menu by the status item, as a click on it would.
    void popUp();

    QMenu& menu() { return menu_; }
    QSystemTrayIcon& trayIcon() { return tray_; }

    // The status item's monochrome image, or with a badge a coloured one with a dot.
    static QIcon icon(bool badge = false);

private:
    void fill(QMenu& menu, const std::vector<MenuItem>& items);

    std::function<void(const MenuItem&)> onChoose_;
    QMenu menu_;
    QSystemTrayIcon tray_;
    bool badge_ = false;
};

} // namespace norrow
