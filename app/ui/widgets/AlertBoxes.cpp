#include "AlertBoxes.h"

#include <QApplication>
#include <QIcon>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

namespace alerts {

namespace {

QMessageBox* makeBox(QWidget* parent, const AlertText& text)
{
    auto* box = new QMessageBox(parent);
    box->setTextFormat(Qt::PlainText);
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setText(text.message);
    box->setInformativeText(text.info);
    const QIcon icon = QApplication::windowIcon();
    if (!icon.isNull())
        box->setIconPixmap(icon.pixmap(QSize(64, 64), box->devicePixelRatio()));
    QPushButton* primary = box->addButton(text.defaultButton.isEmpty() ? QStringLiteral("OK") : text.defaultButton,
                                          QMessageBox::AcceptRole);
    box->setDefaultButton(primary);
    box->setEscapeButton(primary);
    if (!text.alternateButton.isEmpty())
        box->setEscapeButton(box->addButton(text.alternateButton, QMessageBox::RejectRole));
    box->setAccessibleName(text.message);
    return box;
}

int answerOf(const QMessageBox* box)
{
    return box->clickedButton() == box->defaultButton() ? 1 : 0;
}

} // namespace

QMessageBox* showSheet(QWidget* parent, const AlertText& text, std::function<void(int answer)> ended)
{
    QMessageBox* box = makeBox(parent, text);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(box, &QMessageBox::finished, box, [box, ended = std::move(ended)] {
        if (ended)
            ended(answerOf(box));
    });
    box->open();
    return box;
}

int runSheet(QWidget* parent, const AlertText& text)
{
    QPointer<QMessageBox> box = makeBox(parent, text);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box->exec();
    if (!box)
        return 0;
    const int answer = answerOf(box);
    delete box;
    return answer;
}

int runPanel(const AlertText& text)
{
    return runSheet(nullptr, text);
}

} // namespace alerts
