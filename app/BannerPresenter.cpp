#include "app/BannerPresenter.h"

#include "app/BannerContentView.h"
#include "app/BannerPanel.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <algorithm>

namespace norrow {

BannerPresenter::BannerPresenter(Desktop& desktop, BannerTimer::Factory timers)
    : desktop_(desktop), timers_(std::move(timers)) {
    // Measuring text loads the font database, which takes tens of milliseconds: now, rather
    // than in front of the first banner.
    BannerContentView::panelHeight(QString());
}

BannerPresenter::~BannerPresenter() {
    motion_.stop();
    motion_.clear();
}

void BannerPresenter::show(const QString& summary, std::function<void()> onClick,
                           std::optional<std::string> standingFor, std::optional<Choices> choices) {
    while (banners_.size() >= maximumVisible) {
        Banner* oldest = banners_.back();
        banners_.pop_back();
        oldest->dismiss();
    }
    auto* banner = new Banner(summary, std::move(onClick), desktop_.composited(), timers_, this);
    connect(banner, &Banner::finished, this, &BannerPresenter::finished);
    if (choices) banner->offerChoices(std::move(choices->choose), choices->detail);
    banners_.insert(banners_.begin(), banner);

    frame_ = activeFrame();
    banner->panel().move(places().front() + QPoint(slideDistance, 0));
    banner->appear();
    layOut();
    if (standingFor) {
        standing_.emplace(banner, std::move(*standingFor));
        banner->stand();
    } else {
        banner->scheduleDismissal();
    }
}

void BannerPresenter::withdraw(const std::string& session) {
    for (auto it = standing_.begin(); it != standing_.end();) {
        if (it->second != session) {
            ++it;
            continue;
        }
        Banner* banner = it->first;
        it = standing_.erase(it);
        banner->dismiss();
    }
}

QRect BannerPresenter::activeFrame() {
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (!screen && !QGuiApplication::screens().isEmpty())
        screen = QGuiApplication::screens().front();
    return screen ? screen->availableGeometry() : QRect();
}

std::vector<QPoint> BannerPresenter::places() const {
    std::vector<QPoint> out;
    int top = frame_.top() + topMargin;
    const int x = frame_.left() + frame_.width() - BannerPanel::width - rightMargin;
    for (Banner* banner : banners_) {
        out.emplace_back(x, top);
        top += banner->panel().height() + spacing;
    }
    return out;
}

void BannerPresenter::layOut() {
    // A new layout takes over from one still under way, from wherever the panels are now.
    motion_.stop();
    motion_.clear();
    const auto targets = places();
    for (std::size_t i = 0; i < banners_.size(); ++i) {
        auto* move = new QPropertyAnimation(&banners_[i]->panel(), "pos");
        move->setDuration(static_cast<int>(Banner::fadeInDuration.count()));
        move->setEasingCurve(QEasingCurve::OutCubic);
        move->setEndValue(targets[i]);
        motion_.addAnimation(move);
    }
    motion_.start();
}

void BannerPresenter::finished(Banner* banner) {
    standing_.erase(banner);
    const auto found = std::ranges::find(banners_, banner);
    if (found != banners_.end()) {
        banners_.erase(found);
        layOut();
    }
    banner->deleteLater();
}

} // namespace norrow
