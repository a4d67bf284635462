#pragma once
// AlertBoxes: the alerts of the windowed application, made the same way everywhere: the
// message in bold, the informative text under it (both plain text, so a feed or a path never
// becomes markup), the application's icon, the default button on Return and the alternate
// button (else the default one) on Escape. Answers are the platform's return codes: 1 for the
// default button, 0 for the alternate one, -1 for the other one.
//
// Main thread only.

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
    QString otherButton;     // empty: none
};

// A new alert box, not yet shown, owned by `parent` (or by the caller when there is none).
QMessageBox* makeBox(QWidget* parent, const AlertText& text);
// The return code of the button that ended `box`.
int answerOf(const QMessageBox* box);
// Puts `box` on screen: a window-modal sheet on its parent, or an application-modal alert when
// it has none. Returns at once; the box deletes itself when it ends.
void present(QMessageBox* box);
// Shows a window-modal sheet on `parent` (application-modal without one) that deletes itself
// when it ends; returns at once and hands the answer to `ended`.
QMessageBox* showSheet(QWidget* parent, const AlertText& text, std::function<void(int answer)> ended);

} // namespace alerts
