// Release notes: the HTML the notes views show for a record, and what a click on a link in
// them does. Main thread.
//
// The notes are shown by a view that runs no script and fetches nothing from the network; a
// link click is never followed inside the view: it goes to the desktop's browser, and a direct
// download of an installer (".dmg" or ".zip") quits the updater, as the notes announce.

#include "AppController.h"

#include "UpdateRecord.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/Workspace.h"
#include "shared/VLLog.h"

#include <QFileInfo>
#include <QUrl>

namespace {

const QString kStyleBlock = QStringLiteral(
    "<style>a:link { color: #4490e2; } @media (prefers-color-scheme: dark) { body { "
    "color:#eee;background-color:#2a2a2a; } }</style>");
const QString kBoxStyle = QStringLiteral(
    "font-family:Helvetica;margin:10px;border:thin solid #777;background-color:#EEE;color:#000;"
    "padding:10px;margin-bottom:5px;");
const QString kFooterStyle = QStringLiteral(
    "width:800px;position: fixed;left:-2px;bottom:0px;color:#eee;background:#333;margin:0;padding:5px;"
    "clear:both;border-top:thin solid #777;font-family:Helvetica;font-size:10px;");

// Links from a feed reach the desktop's opener only with these schemes: the opener would also
// run a local file or a desktop entry, and a release note must never start a program.
const QStringList kOpenableSchemes = {QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("mailto")};

QString smallIconAddress()
{
    const QString icon = sys::Bundle::mainBundle().resourcePath() + QStringLiteral("/icon-18.png");
    return QFileInfo::exists(icon) ? QUrl::fromLocalFile(icon).toString() : QString();
}

// The record's "url" inside an attribute: escaped so that a quote cannot end the attribute.
QString linkTo(const UpdateRecord& record, const QString& text)
{
    return QStringLiteral("<a href=\"%1\">%2</a>").arg(record.value(record::kUrl).toString().toHtmlEscaped(), text);
}

} // namespace

QString AppController::changeListForUpdate(const UpdateRecord& record)
{
    const QString changes = record.value(record::kChangeList).toString();
    QString html;
    if (fnd::boolValue(record.value(record::kPaidUpgrade))) {
        html += QStringLiteral("<div style=\"%1\"><b>Paid upgrade:</b> this update is a paid software upgrade; "
                               "installing it needs a licence for the new version.</div>").arg(kBoxStyle);
    }
    if (fnd::boolValue(record.value(record::kManualOnly))) {
        html += QStringLiteral("<div style=\"%1\"><b>Important:</b> This update must be installed manually."
                               "<div style=\"padding:4px;padding-left:15px;\">"
                               "<img src=\"%2\" style=\"padding-right:5px;vertical-align:middle;\">%3 (updater will close)"
                               "</div></div>")
                    .arg(kBoxStyle, smallIconAddress().toHtmlEscaped(), linkTo(record, QStringLiteral("Install manually")));
        html += QStringLiteral("<div style=\"padding-top:5px;font-family:Helvetica\">%1</div>").arg(changes);
        return html;
    }
    html += QStringLiteral("<div style=\"font-family:Helvetica;\">%1</div><br><br>").arg(changes);
    html += QStringLiteral("<div style=\"%1\">%2 (updater will close)</div>")
                .arg(kFooterStyle, linkTo(record, QStringLiteral("Install update manually")));
    return html;
}

void AppController::setWebViewHTMLString(const QString& html)
{
    setHTMLString(html, UserInterface::NotesView::Main);
}

void AppController::setHTMLString(const QString& html, UserInterface::NotesView view)
{
    ui().setNotesHTML(view, kStyleBlock + html);
}

bool AppController::decidePolicyForNavigation(const QString& url, bool linkClicked)
{
    if (!linkClicked)
        return true;
    const QUrl address(url);
    if (!kOpenableSchemes.contains(address.scheme().toLower())) {
        VLLog::appendLog(QStringLiteral("Not opening the link %@ from the release notes."), url);
        return false;
    }
    if (!sys::workspace().openURL(url))
        VLLog::appendLog(QStringLiteral("Unable to open %@ in the browser."), url);
    const QString extension = QFileInfo(address.path()).suffix().toLower();
    if (extension == QStringLiteral("dmg") || extension == QStringLiteral("zip"))
        ui().terminateApplication();
    return false;
}
