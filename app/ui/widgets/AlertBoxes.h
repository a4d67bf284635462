#pragma once
// AlertBoxes: the alerts of the windowed application, made the same way everywhere: the
// message in bold, the informative text under it (both plain text, so a feed or a path never
// becomes markup), the application's icon, the default button on Return and the other button
// on Escape.
//
//  - a sheet: window-modal on its parent, returns at once; `ended` receives the answer.
//  - a blocking sheet: window-modal on its parent, turns the event loop until answered.
//  - a panel: application-modal, turns the event loop until answered.
// Answers are 1 for the default button, 0 for the alternate one.
//
// Main thread only. A sheet deletes itself when it ends.

#include <QString>

#include <functional>

class QMessageBox;
class QWidget;

namespace alerts {

struct AlertText {
    QString message;
    QString info;
    QString defaultButton;   // empty: "OK"
    QString alternateButton; // empty: none
};

QMessageBox* showSheet(QWidget* parent, const AlertText& text, std::function<void(int answer)> ended);
int runSheet(QWidget* parent, const AlertText& text);
int runPanel(const AlertText& text);

} // namespace alerts
