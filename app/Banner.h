#pragma once

#include "core/PermissionAnswer.h"

#include <QObject>
#include <QPropertyAnimation>
#include <QString>
#include <chrono>
#include <functional>
#include <memory>

namespace norrow {

class BannerContentView;
class BannerPanel;

// A one-shot countdown. The app's run on Qt's event loop; a test hands in its own and fires
// them when it chooses, so that no test waits out a banner's seconds.
class BannerTimer {
public:
    using Factory = std::function<std::unique_ptr<BannerTimer>()>;

    virtual ~BannerTimer() = default;
    // Starts over: `fire` runs once `delay` has passed, unless stopped or started again first.
    virtual void start(std::chrono::milliseconds delay, std::function<void()> fire) = 0;
    virtual void stop() = 0;

    // Timers on Qt's event loop.
    static Factory qt();
};

// One banner: its panel, the countdown to its dismissal and what a click on it does.
// Pointing at it holds the countdown; a click runs the action and dismisses it. Dismissal
// fades the panel out and happens once, however often it is asked for.
class Banner : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds lifetime{6000};
    static constexpr std::chrono::milliseconds fadeInDuration{220};
    static constexpr std::chrono::milliseconds fadeOutDuration{180};
    // How long an answered banner shows the answer before it goes.
    static constexpr std::chrono::milliseconds decisionLinger{1500};

    // `onClick` may be empty: then a click only dismisses.
    Banner(const QString& summary, std::function<void()> onClick, bool composited,
           const BannerTimer::Factory& timers, QObject* parent);
    ~Banner() override;

    BannerPanel& panel() { return *panel_; }
    const BannerContentView& content() const { return *content_; }
    bool dismissed() const { return dismissed_; }

    // Shows the panel where it stands, transparent, and fades it in.
    void appear();
    // (Re)starts the countdown to dismissal.
    void scheduleDismissal();
    // Keeps it up until it is dismissed: it stands for something still true.
    void stand();
    // Offers "Allow" and "Deny" under the summary, with `detail`, the whole of what is asked,
    // on hover. A press on one runs `choose`; then the banner says what was chosen and goes.
    // Call before `appear`: the panel grows by the row of answers.
    void offerChoices(std::function<void(PermissionAnswer::Choice)> choose, const QString& detail);
    // Fades the panel out, then hides it and reports `finished`; later calls do nothing.
    void dismiss();

signals:
    // The fade-out is over and the panel hidden.
    void finished(norrow::Banner* banner);

private:
    void clicked();
    void hovered(bool inside);
    void chosen(PermissionAnswer::Choice choice);

    std::unique_ptr<BannerPanel> panel_;
    BannerContentView* content_;
    std::function<void()> onClick_;
    std::function<void(PermissionAnswer::Choice)> choose_;
    std::unique_ptr<BannerTimer> dismissal_;
    // Ends the fade-out; the opacity animation is only how it looks.
    std::unique_ptr<BannerTimer> fadeEnd_;
    QPropertyAnimation opacity_;
    bool dismissed_ = false;
    bool standing_ = false;
};

} // namespace norrow
