#include "WidgetsAlertPresenter.h"

#include "AlertBoxes.h"

#include <QCheckBox>
#include <QDialog>
#include <QMessageBox>

namespace {

// One alert box. The box is made when the alert is shown, on the window it is shown on, and
// deletes itself when it ends or is ordered out.
class WidgetsPlatformAlert final : public VLPlatformAlert {
public:
    // A box on screen keeps its alert alive through its end handler (which owns the VLAlert that
    // owns this object), so this object never goes while its box is up unless ordered out.
    explicit WidgetsPlatformAlert(alerts::AlertText text) : text_(std::move(text)) {}

    void showSuppressionButton(bool checked, std::function<void(bool)> toggled) override
    {
        suppressionChecked_ = checked;
        toggled_ = std::move(toggled);
        suppression_ = true;
    }

    void beginSheetModalForWindow(QObject* window, std::function<void(int)> didEnd) override
    {
        QWidget* parent = qobject_cast<QWidget*>(window);
        box_ = alerts::makeBox(parent, text_);
        if (suppression_) {
            auto* check = new QCheckBox(QStringLiteral("Do not show this message again"), box_);
            check->setChecked(suppressionChecked_);
            QObject::connect(check, &QCheckBox::toggled, check, [toggled = toggled_](bool on) {
                if (toggled)
                    toggled(on);
            });
            box_->setCheckBox(check);
        }
        QMessageBox* box = box_;
        QObject::connect(box, &QMessageBox::finished, box, [box, didEnd = std::move(didEnd)]() mutable {
            const auto handler = std::exchange(didEnd, {});
            if (handler)
                handler(alerts::answerOf(box));
        });
        alerts::present(box_);
    }

    bool isWindowVisible() const override { return box_ && box_->isVisible(); }

    void orderOut() override
    {
        if (!box_)
            return;
        QObject::disconnect(box_, &QMessageBox::finished, nullptr, nullptr);
        box_->close();
        box_ = nullptr;
    }

private:
    alerts::AlertText text_;
    bool suppression_ = false;
    bool suppressionChecked_ = false;
    std::function<void(bool)> toggled_;
    QPointer<QMessageBox> box_;
};

} // namespace

WidgetsAlertPresenter::WidgetsAlertPresenter(QWidget* mainWindow)
    : mainWindow_(mainWindow)
{
}

std::shared_ptr<VLPlatformAlert> WidgetsAlertPresenter::alertWithMessageText(
    const QString& messageText, const QString& defaultButton, const QString& alternateButton,
    const QString& otherButton, const QString& informativeText)
{
    return std::make_shared<WidgetsPlatformAlert>(
        alerts::AlertText{messageText, informativeText, defaultButton, alternateButton, otherButton});
}

QObject* WidgetsAlertPresenter::mainWindow()
{
    return mainWindow_.data();
}

bool WidgetsAlertPresenter::hasAttachedSheet(QObject* window)
{
    auto* widget = qobject_cast<QWidget*>(window);
    if (!widget)
        return false;
    for (const QDialog* dialog : widget->findChildren<QDialog*>(Qt::FindDirectChildrenOnly)) {
        if (dialog->isVisible() && dialog->windowModality() == Qt::WindowModal)
            return true;
    }
    return false;
}

void WidgetsAlertPresenter::bringToFront(QObject* window)
{
    if (auto* widget = qobject_cast<QWidget*>(window); widget && widget->isVisible()) {
        widget->raise();
        widget->activateWindow();
    }
}
