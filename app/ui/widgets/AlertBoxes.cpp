#include "AlertBoxes.h"

#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace alerts {

namespace {
const char* const kAnswerProperty = "alertReturnCode";
} // namespace

QMessageBox* makeBox(QWidget* parent, const AlertText& text)
{
    auto* box = new QMessageBox(parent);
    box->setTextFormat(Qt::PlainText);
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setText(text.message);
    box->setInformativeText(text.info);
    if (auto* message = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
        QFont bold = message->font();
        bold.setBold(true);
        message->setFont(bold);
    }
    if (auto* info = box->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
        info->setMinimumWidth(info->fontMetrics().averageCharWidth() * 40);
    const QIcon icon = QApplication::windowIcon();
    if (!icon.isNull())
        box->setIconPixmap(icon.pixmap(QSize(64, 64), box->devicePixelRatio()));
    const auto add = [box](const QString& title, QMessageBox::ButtonRole role, int code) {
        QPushButton* button = box->addButton(title, role);
        button->setProperty(kAnswerProperty, code);
        return button;
    };
    QPushButton* primary = add(text.defaultButton.isEmpty() ? QStringLiteral("OK") : text.defaultButton,
                               QMessageBox::AcceptRole, 1);
    box->setDefaultButton(primary);
    box->setEscapeButton(primary);
    if (!text.otherButton.isEmpty())
        add(text.otherButton, QMessageBox::DestructiveRole, -1);
    if (!text.alternateButton.isEmpty())
        box->setEscapeButton(add(text.alternateButton, QMessageBox::RejectRole, 0));
    box->setAccessibleName(text.message);
    box->setAccessibleDescription(text.info);
    return box;
}

int answerOf(const QMessageBox* box)
{
    const QAbstractButton* clicked = box->clickedButton();
    return clicked ? clicked->property(kAnswerProperty).toInt() : 1;
}

void present(QMessageBox* box)
{
    box->setAttribute(Qt::WA_DeleteOnClose);
    if (box->parentWidget()) {
        box->open(); // window-modal on its parent
    } else {
        box->setWindowModality(Qt::ApplicationModal);
        box->show();
    }
    box->raise();
    box->activateWindow();
}

QMessageBox* showSheet(QWidget* parent, const AlertText& text, std::function<void(int answer)> ended)
{
    QMessageBox* box = makeBox(parent, text);
    QObject::connect(box, &QMessageBox::finished, box, [box, ended = std::move(ended)] {
        if (ended)
            ended(answerOf(box));
    });
    present(box);
    return box;
}

} // namespace alerts
