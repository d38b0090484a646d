#include "app/BannerContentView.h"

#include <QApplication>
#include <QEnterEvent>
#include <QFontMetricsF>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>
#include <cmath>

namespace norrow {
namespace {

// The icon is drawn this many times finer than its logical size, so it stays sharp on dense
// screens.
constexpr int iconScale = 3;

// Every line the summary wraps to in the label's width, without the spaces at the breaks.
QStringList wrapped(const QString& text) {
    QTextLayout layout(text, BannerContentView::labelFont());
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    QStringList lines;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(BannerContentView::labelWidth);
        lines.push_back(text.mid(line.textStart(), line.textLength()).trimmed());
    }
    layout.endLayout();
    return lines;
}

double lineHeight() {
    return QFontMetricsF(BannerContentView::labelFont()).lineSpacing();
}

// The app's bell, white on a rounded tile of deep blue, as an app icon looks.
QPixmap appIcon() {
    const int size = BannerContentView::iconSize * iconScale;
    QPixmap bell = QPixmap(QStringLiteral(":/icons/NorrowMenu-64.png"))
                       .scaledToWidth(size * 5 / 8, Qt::SmoothTransformation);
    {
        QPainter tint(&bell);
        tint.setCompositionMode(QPainter::CompositionMode_SourceIn);
        tint.fillRect(bell.rect(), Qt::white);
    }
    QPixmap icon(size, size);
    icon.fill(Qt::transparent);
    QPainter painter(&icon);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient fill(0, 0, 0, size);
    fill.setColorAt(0, QColor(0x5b, 0x7c, 0xfa));
    fill.setColorAt(1, QColor(0x3a, 0x4f, 0xd6));
    QPainterPath tile;
    tile.addRoundedRect(QRectF(0, 0, size, size), size * 0.23, size * 0.23);
    painter.fillPath(tile, fill);
    painter.drawPixmap((size - bell.width()) / 2, (size - bell.height()) / 2, bell);
    return icon;
}

} // namespace

BannerContentView::BannerContentView(QString summary, QWidget* parent)
    : QWidget(parent), summary_(std::move(summary)), icon_(appIcon()) {
    setFocusPolicy(Qt::NoFocus);
    setMouseTracking(true);
    setAccessibleName(summary_);
    setLines(summary_);
}

void BannerContentView::setLines(const QString& text) {
    lines_ = wrapped(text);
    if (lines_.size() > maximumLines) {
        // The last visible line carries on with the rest of the text, cut to fit.
        const QStringList rest = lines_.mid(maximumLines - 1);
        lines_ = lines_.mid(0, maximumLines - 1);
        lines_.push_back(QFontMetricsF(labelFont())
                             .elidedText(rest.join(QLatin1Char(' ')), Qt::ElideRight, labelWidth));
    }
}

void BannerContentView::offerChoices() {
    offering_ = true;
    update();
}

void BannerContentView::showDecision(const QString& decision) {
    offering_ = false;
    setAccessibleName(decision);
    setLines(decision);
    update();
}

QFont BannerContentView::labelFont() {
    QFont font = QApplication::font();
    font.setPixelSize(13);
    return font;
}

int BannerContentView::labelHeight(const QString& summary) {
    const double line = lineHeight();
    const double fitting = static_cast<double>(wrapped(summary).size()) * line;
    return static_cast<int>(std::min(std::ceil(maximumLines * line), std::ceil(fitting)));
}

int BannerContentView::panelHeight(const QString& summary) {
    return std::max(labelHeight(summary) + verticalPadding, minimumHeight);
}

void BannerContentView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform |
                           QPainter::TextAntialiasing);
    painter.drawPixmap(QRectF(iconX, (height() - iconSize) / 2.0, iconSize, iconSize), icon_,
                       icon_.rect());

    const QFont font = labelFont();
    const QFontMetricsF metrics(font);
    painter.setFont(font);
    painter.setPen(palette().color(QPalette::WindowText));
    const int textArea = height() - (offering_ ? choiceRowHeight : 0);
    const double top =
        (textArea - std::ceil(metrics.lineSpacing() * static_cast<double>(lines_.size()))) / 2.0;
    for (int i = 0; i < lines_.size(); ++i)
        painter.drawText(QPointF(labelX, top + i * metrics.lineSpacing() + metrics.ascent()),
                         lines_[i]);
    if (!offering_) return;
    // Two plain buttons that only a pointer presses: there is no focus and no default one.
    const QColor accent(0x3a, 0x4f, 0xd6);
    for (const auto choice : {PermissionAnswer::Choice::deny, PermissionAnswer::Choice::allow}) {
        const bool allow = choice == PermissionAnswer::Choice::allow;
        const QRectF place = QRectF(choiceRect(choice)).adjusted(0.5, 0.5, -0.5, -0.5);
        painter.setPen(allow ? Qt::NoPen : QPen(palette().color(QPalette::Mid), 1));
        painter.setBrush(allow ? accent : palette().color(QPalette::Button));
        painter.drawRoundedRect(place, choiceHeight / 2.0, choiceHeight / 2.0);
        painter.setPen(allow ? QColor(Qt::white) : palette().color(QPalette::ButtonText));
        painter.drawText(place, Qt::AlignCenter, allow ? tr("Allow") : tr("Deny"));
    }
}

void BannerContentView::enterEvent(QEnterEvent*) {
    if (onHover) onHover(true);
}

void BannerContentView::leaveEvent(QEvent*) {
    if (onHover) onHover(false);
}

void BannerContentView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (offering_)
        for (const auto choice : {PermissionAnswer::Choice::allow, PermissionAnswer::Choice::deny})
            if (choiceRect(choice).contains(event->position().toPoint())) {
                if (onChoose) onChoose(choice);
                return;
            }
    if (onClick) onClick();
}

} // namespace norrow
