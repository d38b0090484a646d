#pragma once

#include "core/PermissionAnswer.h"

#include <QFont>
#include <QPixmap>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <functional>
#include <optional>

namespace norrow {

// What a banner shows: the app's bell on the left and the summary beside it, wrapped onto at
// most four lines, the last one cut with an ellipsis when the text goes on. It reports the
// pointer coming and going and a press anywhere on it, icon and text included.
class BannerContentView : public QWidget {
    Q_OBJECT
public:
    static constexpr int iconSize = 36;
    static constexpr int iconX = 11;
    static constexpr int labelX = 57;
    static constexpr int labelWidth = 276;
    static constexpr int maximumLines = 4;
    // Above and below the text together, and the least a banner is high.
    static constexpr int verticalPadding = 22;
    static constexpr int minimumHeight = 58;
    // The row of answers under the summary, and each answer's button.
    static constexpr int choiceRowHeight = 34;
    static constexpr int choiceWidth = 76;
    static constexpr int choiceHeight = 24;

    BannerContentView(QString summary, QWidget* parent);

    // The summary's font: the system's, 13 logical pixels high.
    static QFont labelFont();
    // Four lines' worth at most, otherwise what the wrapped text needs.
    static int labelHeight(const QString& summary);
    // The panel's height for `summary`: the label and its padding, never below the minimum.
    static int panelHeight(const QString& summary);

    const QString& summary() const { return summary_; }
    // The lines as drawn.
    const QStringList& lines() const { return lines_; }

    // Shows "Allow" and "Deny" under the summary until one is chosen.
    void offerChoices();
    bool offersChoices() const { return offering_; }
    // Where each answer's button is drawn, while offered.
    QRect choiceRect(PermissionAnswer::Choice choice) const { return choiceRect(choice, height()); }
    // The same in a banner `height` high: "Allow" at the right edge of the text, "Deny"
    // before it.
    static constexpr QRect choiceRect(PermissionAnswer::Choice choice, int height) {
        const int slot = choice == PermissionAnswer::Choice::allow ? 1 : 2;
        return {labelX + labelWidth - slot * choiceWidth - (slot - 1) * 8,
                height - choiceRowHeight + (choiceRowHeight - choiceHeight) / 2 - 6, choiceWidth,
                choiceHeight};
    }
    // Replaces the summary and the answers with what was decided.
    void showDecision(const QString& decision);

    std::function<void()> onClick;
    std::function<void(bool inside)> onHover;
    std::function<void(PermissionAnswer::Choice)> onChoose;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    void setLines(const QString& text);

    QString summary_;
    bool offering_ = false;
    QStringList lines_;
    QPixmap icon_;
};

} // namespace norrow
