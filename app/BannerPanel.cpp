#include "app/BannerPanel.h"

#include <QPainter>
#include <QPainterPath>
#include <QRegion>

namespace norrow {
namespace {

QPainterPath outline(const QRectF& bounds) {
    QPainterPath path;
    path.addRoundedRect(bounds, BannerPanel::cornerRadius, BannerPanel::cornerRadius);
    return path;
}

QColor mixed(const QColor& from, const QColor& to, double share) {
    return QColor::fromRgbF(
        static_cast<float>(from.redF() + (to.redF() - from.redF()) * share),
        static_cast<float>(from.greenF() + (to.greenF() - from.greenF()) * share),
        static_cast<float>(from.blueF() + (to.blueF() - from.blueF()) * share));
}

} // namespace

// Out of the window manager's hands on X11: it stays exactly where it is put, is never framed
// or focused, and comes up without a round trip through the manager.
BannerPanel::BannerPanel(int height, bool composited)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::X11BypassWindowManagerHint),
      composited_(composited) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11NetWmWindowTypeNotification);
    setAttribute(Qt::WA_TranslucentBackground, composited);
    setFocusPolicy(Qt::NoFocus);
    setHeight(height);
}

void BannerPanel::setHeight(int height) {
    setFixedSize(width, height);
    // Without a compositor the window is a rectangle of opaque pixels; the mask shapes it.
    if (!composited_) setMask(QRegion(outline(QRectF(rect())).toFillPolygon().toPolygon()));
}

void BannerPanel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor base = palette().color(QPalette::Window);
    const QColor ink = palette().color(QPalette::WindowText);
    QColor fill = mixed(base, QColor(Qt::white), 0.45);
    if (composited_) fill.setAlphaF(0.92f);
    const QRectF bounds = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (!composited_) painter.fillRect(rect(), mixed(base, ink, 0.3));
    painter.fillPath(outline(bounds), fill);
    painter.setPen(QPen(composited_ ? QColor(0, 0, 0, 40) : mixed(base, ink, 0.3), 1));
    painter.drawPath(outline(bounds));
}

} // namespace norrow
