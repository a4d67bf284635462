#include "ReleaseNotesBrowser.h"

#include <QFileInfo>
#include <QImage>
#include <QTextDocument>
#include <QUrl>

ReleaseNotesBrowser::ReleaseNotesBrowser(QWidget* parent)
    : QTextBrowser(parent)
{
    setOpenLinks(false);
    setOpenExternalLinks(false);
    setUndoRedoEnabled(false);
    document()->setDocumentMargin(8);
    connect(this, &QTextBrowser::anchorClicked, this, [this](const QUrl& url) {
        if (navigationHandler_)
            navigationHandler_(url.toString());
    });
}

void ReleaseNotesBrowser::setNavigationHandler(std::function<void(const QString& url)> handler)
{
    navigationHandler_ = std::move(handler);
}

void ReleaseNotesBrowser::setResourceFolder(const QString& folder)
{
    resourceFolder_ = folder.isEmpty() ? QString() : QFileInfo(folder).canonicalFilePath();
}

QVariant ReleaseNotesBrowser::loadResource(int type, const QUrl& name)
{
    if (type != QTextDocument::ImageResource || resourceFolder_.isEmpty() || !name.isLocalFile())
        return {};
    // Canonical paths, so that ".." or a symbolic link cannot lead out of the folder.
    const QString file = QFileInfo(name.toLocalFile()).canonicalFilePath();
    if (file.isEmpty() || !file.startsWith(resourceFolder_ + QLatin1Char('/')))
        return {};
    const QImage image(file);
    if (image.isNull())
        return {};
    return image;
}
