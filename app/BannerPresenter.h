#pragma once

#include "app/Banner.h"
#include "app/platform/Desktop.h"

#include <QObject>
#include <QParallelAnimationGroup>
#include <QPoint>
#include <QRect>
#include <QString>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace norrow {

// The banners on screen: up to three stacked in the top-right corner of the screen under the
// pointer, newest on top. A new one slides in from the right while the older ones move down;
// a fourth pushes the oldest out. Main thread only.
class BannerPresenter : public QObject {
    Q_OBJECT
public:
    static constexpr int maximumVisible = 3;
    static constexpr int topMargin = 18;
    static constexpr int rightMargin = 32;
    static constexpr int spacing = 8;
    static constexpr int slideDistance = 24;

    explicit BannerPresenter(Desktop& desktop, BannerTimer::Factory timers = BannerTimer::qt());
    ~BannerPresenter() override;

    // Answers a banner offers: a press on "Allow" or "Deny" runs `choose`; `detail` is the
    // whole of what is asked, shown on hover.
    struct Choices {
        std::function<void(PermissionAnswer::Choice)> choose;
        QString detail;
    };

    // Shows `summary` in a new banner; a click on it runs `onClick`, when given, and
    // dismisses it. A banner standing for a session stays until withdrawn or clicked.
    void show(const QString& summary, std::function<void()> onClick,
              std::optional<std::string> standingFor = std::nullopt,
              std::optional<Choices> choices = std::nullopt);
    // Takes back the session's standing banner, when one is up.
    void withdraw(const std::string& session);

    // Newest first; a banner pushed out or faded out is no longer here.
    const std::vector<Banner*>& banners() const { return banners_; }
    // Where each banner in the list belongs, in the same order.
    std::vector<QPoint> places() const;

private:
    // The available area of the screen under the pointer, else of the primary screen.
    static QRect activeFrame();
    // Moves every banner to its place.
    void layOut();
    void finished(Banner* banner);

    Desktop& desktop_;
    BannerTimer::Factory timers_;
    std::vector<Banner*> banners_;
    std::map<Banner*, std::string> standing_;
    QRect frame_;
    QParallelAnimationGroup motion_;
};

} // namespace norrow
