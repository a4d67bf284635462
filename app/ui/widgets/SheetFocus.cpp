#include "SheetFocus.h"

#include <QDialog>
#include <QEvent>
#include <QWidget>

namespace sheets {

namespace {

class SheetFocusFilter final : public QObject {
public:
    explicit SheetFocusFilter(QWidget* window) : QObject(window), window_(window) {}

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (watched == window_ && event->type() == QEvent::ActivationChange && window_->isActiveWindow()) {
            if (QDialog* sheet = visibleSheet())
                sheet->activateWindow();
        }
        return false;
    }

private:
    QDialog* visibleSheet() const
    {
        QDialog* last = nullptr;
        for (QDialog* dialog : window_->findChildren<QDialog*>(Qt::FindDirectChildrenOnly)) {
            if (dialog->isVisible() && dialog->windowModality() == Qt::WindowModal)
                last = dialog;
        }
        return last;
    }

    QWidget* window_; // the parent
};

} // namespace

void keepKeysOnSheets(QWidget* window)
{
    window->installEventFilter(new SheetFocusFilter(window));
}

} // namespace sheets
