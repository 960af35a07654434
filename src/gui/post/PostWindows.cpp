#include "gui/post/PostWindows.h"

#include "app/Shell.h"
#include "gui/post/frmPostMsg.h"
#include "post/Poster.h"

#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>

PostWindows::PostWindows(Shell &shell, Poster &p, QLabel *groupCaption, QWidget *parentWindow)
    : QObject(&p), sh(shell), poster(p), m_caption(groupCaption), m_parentWindow(parentWindow)
{
    poster.messageListingShown = [this] {
        return m_caption && m_caption->text().startsWith(QLatin1String("  Available Messages"));
    };
    connect(&poster, &Poster::windowWanted, this, &PostWindows::showWindow);
    connect(&poster, &Poster::replyWanted, this, &PostWindows::showReply);
    connect(&poster, &Poster::windowRefused, this, [this] {
        if (m_window)
            m_window->close();
    });
}

frmPostMsg *PostWindows::ensureWindow()
{
    if (!m_window) {
        m_window = new frmPostMsg(sh, poster, m_parentWindow);
        // a closed window is gone for good; the next command loads a fresh one
        connect(m_window, &frmPostMsg::closed, this, [this] { m_window = nullptr; });
    }
    return m_window;
}

void PostWindows::showWindow()
{
    frmPostMsg *w = ensureWindow();
    if (sh.isBatch())
        return;
    w->show();
    w->raise();
    w->activateWindow();
}

void PostWindows::showReply(const QString &subject, const QString &text)
{
    frmPostMsg *w = ensureWindow();
    w->txtSubject->setText(subject);
    w->txtMessage->setPlainText(text);
    if (sh.isBatch())
        return;
    if (!w->isVisible())
        w->setWindowModality(Qt::ApplicationModal);
    w->show();
    w->raise();
    w->activateWindow();
}
