#pragma once
#include "gui/post/frmPostMsg.h"

#include <QObject>
#include <QPointer>

class Poster;
class QLabel;
class QWidget;
class Shell;

// Shows the post window the Poster asks for: made on first use, gone when closed. Tells the
// Poster whether the main window's group caption shows a message listing.
class PostWindows : public QObject {
    Q_OBJECT
public:
    PostWindows(Shell &sh, Poster &poster, QLabel *groupCaption, QWidget *parentWindow);

    // The post window (null while none is open).
    frmPostMsg *window() const { return m_window; }

private:
    frmPostMsg *ensureWindow();
    void showWindow();
    void showReply(const QString &subject, const QString &text);

    Shell &sh;
    Poster &poster;
    QPointer<QLabel> m_caption;
    QWidget *m_parentWindow;
    QPointer<frmPostMsg> m_window;
};
