#pragma once

#include <QWidget>

namespace norrow {

// A banner's window: frameless, above the other windows, left out of the taskbar, and never
// given the keyboard focus, so that showing or clicking it leaves the user's window active
// and never brings Norrow forward. Its corners are rounded: where a compositor draws the
// windows its background is translucent and the compositor adds the shadow; elsewhere it is
// opaque, with a border to set it off and the corners cut away.
class BannerPanel : public QWidget {
    Q_OBJECT
public:
    static constexpr int width = 344;
    static constexpr int cornerRadius = 18;

    BannerPanel(int height, bool composited);

    bool composited() const { return composited_; }
    void setHeight(int height);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool composited_;
};

} // namespace norrow
