#include "ProgressSheet.h"

#include <QCloseEvent>
#include <QProgressBar>

ProgressSheet::ProgressSheet(QWidget* parent)
    : QDialog(parent, Qt::Sheet)
{
    setWindowModality(Qt::WindowModal);
    setModal(false);
}

void ProgressSheet::setCancelAction(std::function<void()> cancel)
{
    cancel_ = std::move(cancel);
}

void ProgressSheet::setProgressBar(QProgressBar* bar)
{
    bar_ = bar;
}

void ProgressSheet::present()
{
    if (isVisible())
        return;
    if (bar_ && bar_->maximum() == 0)
        bar_->setValue(0); // an indeterminate bar moves while shown
    open();
    raise();
    activateWindow();
}

void ProgressSheet::dismiss()
{
    if (!isVisible())
        return;
    hide();
    if (QWidget* owner = parentWidget(); owner && owner->isVisible())
        owner->activateWindow();
}

void ProgressSheet::reject()
{
    if (cancel_)
        cancel_();
}

void ProgressSheet::closeEvent(QCloseEvent* event)
{
    event->ignore();
    reject();
}
