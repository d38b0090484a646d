#include "app/Banner.h"

#include "app/BannerContentView.h"
#include "app/BannerPanel.h"

#include <QTimer>
#include <utility>

namespace norrow {
namespace {

class QtTimer final : public BannerTimer {
public:
    QtTimer() {
        timer_.setSingleShot(true);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            // The callback may start this timer again, replacing itself.
            const auto fire = fire_;
            fire();
        });
    }

    void start(std::chrono::milliseconds delay, std::function<void()> fire) override {
        fire_ = std::move(fire);
        timer_.start(delay);
    }
    void stop() override { timer_.stop(); }

private:
    QTimer timer_;
    std::function<void()> fire_;
};

} // namespace

BannerTimer::Factory BannerTimer::qt() {
    return [] { return std::make_unique<QtTimer>(); };
}

Banner::Banner(const QString& summary, std::function<void()> onClick, bool composited,
               const BannerTimer::Factory& timers, QObject* parent)
    : QObject(parent),
      panel_(std::make_unique<BannerPanel>(BannerContentView::panelHeight(summary), composited)),
      content_(new BannerContentView(summary, panel_.get())), onClick_(std::move(onClick)),
      dismissal_(timers()), fadeEnd_(timers()), opacity_(panel_.get(), "windowOpacity") {
    panel_->setWindowTitle(summary);
    content_->setGeometry(panel_->rect());
    content_->onClick = [this] { clicked(); };
    content_->onHover = [this](bool inside) { hovered(inside); };
}

Banner::~Banner() = default;

void Banner::appear() {
    panel_->setWindowOpacity(0);
    panel_->show();
    opacity_.setDuration(static_cast<int>(fadeInDuration.count()));
    opacity_.setEasingCurve(QEasingCurve::OutCubic);
    opacity_.setStartValue(0.0);
    opacity_.setEndValue(1.0);
    opacity_.start();
}

void Banner::scheduleDismissal() {
    dismissal_->start(lifetime, [this] { dismiss(); });
}

void Banner::stand() {
    standing_ = true;
    dismissal_->stop();
}

void Banner::offerChoices(std::function<void(PermissionAnswer::Choice)> choose,
                          const QString& detail) {
    choose_ = std::move(choose);
    panel_->setHeight(panel_->height() + BannerContentView::choiceRowHeight);
    content_->setGeometry(panel_->rect());
    content_->setToolTip(detail);
    content_->onChoose = [this](PermissionAnswer::Choice choice) { chosen(choice); };
    content_->offerChoices();
}

void Banner::chosen(PermissionAnswer::Choice choice) {
    if (dismissed_ || !choose_) return;
    const auto choose = std::exchange(choose_, {});
    choose(choice);
    content_->showDecision(choice == PermissionAnswer::Choice::allow ? tr("Allowed")
                                                                     : tr("Denied"));
    standing_ = false;
    dismissal_->start(decisionLinger, [this] { dismiss(); });
}

void Banner::dismiss() {
    if (dismissed_) return;
    dismissed_ = true;
    dismissal_->stop();
    opacity_.stop();
    opacity_.setDuration(static_cast<int>(fadeOutDuration.count()));
    opacity_.setEasingCurve(QEasingCurve::InQuad);
    opacity_.setStartValue(panel_->windowOpacity());
    opacity_.setEndValue(0.0);
    opacity_.start();
    fadeEnd_->start(fadeOutDuration, [this] {
        opacity_.stop();
        panel_->hide();
        emit finished(this);
    });
}

void Banner::clicked() {
    if (dismissed_) return;
    if (onClick_) onClick_();
    dismiss();
}

void Banner::hovered(bool inside) {
    if (dismissed_ || standing_) return;
    if (inside)
        dismissal_->stop();
    else
        scheduleDismissal();
}

} // namespace norrow
