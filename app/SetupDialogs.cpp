#include "app/SetupDialogs.h"

#include <QGridLayout>
#include <QMessageBox>
#include <QPushButton>

namespace norrow::SetupDialogs {
namespace {

constexpr int minimumWidth = 460;

// A tray utility has no window of its own to come forward with, so the dialog itself is
// raised above other applications.
int runInFront(QMessageBox& box, const SetupAlert& alert) {
    box.setWindowTitle(QStringLiteral("Norrow"));
    // The message in bold above the details, as alerts read elsewhere; paths stay literal.
    box.setTextFormat(Qt::RichText);
    box.setText(
        QStringLiteral("<b>%1</b>").arg(QString::fromStdString(alert.message).toHtmlEscaped()));
    box.setInformativeText(
        QString::fromStdString(alert.informativeText).toHtmlEscaped().replace('\n', "<br>"));
    // Wide enough that a backup's path stays on one line.
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout()))
        grid->addItem(
            new QSpacerItem(minimumWidth, 0, QSizePolicy::Minimum, QSizePolicy::Expanding),
            grid->rowCount(), 0, 1, grid->columnCount());
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.show();
    box.raise();
    box.activateWindow();
    return box.exec();
}

} // namespace

void inform(const SetupAlert& alert, bool warning) {
    QMessageBox box;
    box.setIcon(warning ? QMessageBox::Warning : QMessageBox::Information);
    box.setStandardButtons(QMessageBox::Ok);
    runInFront(box, alert);
}

bool confirmRemoval() {
    QMessageBox box;
    box.setIcon(QMessageBox::Question);
    QPushButton* remove =
        box.addButton(QString::fromUtf8(SetupAlert::removeButton.data(),
                                        static_cast<qsizetype>(SetupAlert::removeButton.size())),
                      QMessageBox::AcceptRole);
    box.addButton(QString::fromUtf8(SetupAlert::cancelButton.data(),
                                    static_cast<qsizetype>(SetupAlert::cancelButton.size())),
                  QMessageBox::RejectRole);
    box.setDefaultButton(remove);
    runInFront(box, SetupAlert::confirmRemoval());
    return box.clickedButton() == remove;
}

} // namespace norrow::SetupDialogs
