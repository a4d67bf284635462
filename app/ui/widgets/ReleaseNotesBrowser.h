#pragma once
// ReleaseNotesBrowser: the view of release notes (the outlets webView and updateWebView).
// Shows feed HTML with Qt's rich-text engine, which runs no script; it never follows a link
// itself and never fetches anything: a click is handed to the navigation handler, and the only
// resources it loads are images inside the application's own Resources folder (the small icon
// of the manual-install box). Everything else a feed refers to stays unloaded.
//
// Lifecycle: owned by its window (a Qt parent). Main thread only.

#include <QTextBrowser>

#include <functional>

class ReleaseNotesBrowser final : public QTextBrowser {
    Q_OBJECT
public:
    explicit ReleaseNotesBrowser(QWidget* parent = nullptr);

    // Receives every link click (the address as written in the document).
    void setNavigationHandler(std::function<void(const QString& url)> handler);
    // The folder whose images the notes may show; empty: none.
    void setResourceFolder(const QString& folder);

    QVariant loadResource(int type, const QUrl& name) override;

private:
    std::function<void(const QString&)> navigationHandler_;
    QString resourceFolder_;
};
