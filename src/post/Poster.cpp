#include "post/Poster.h"

#include "app/frmMain.h"
#include "post/PostArticle.h"
#include "post/frmPostMsg.h"

#include <QPlainTextEdit>
#include <QLineEdit>

Poster::Poster(frmMain &main) : QObject(&main), m(main)
{
    m.wireCommand(QStringLiteral("menuPostC"), [this] { OpenPost(frmPostMsg::CurrentGroup); });
    m.wireCommand(QStringLiteral("menuPostG"), [this] { OpenPost(frmPostMsg::SelectedGroups); });
    m.wireCommand(QStringLiteral("menuPostF"), [this] { OpenPost(frmPostMsg::SelectedFavorites); });
}

frmPostMsg *Poster::ensureWindow()
{
    if (!m_window) {
        m_window = new frmPostMsg(m);
        // a closed window is gone for good; the next command loads a fresh one
        connect(m_window, &frmPostMsg::closed, this, [this] { m_window = nullptr; });
    }
    return m_window;
}

bool Poster::replyMode() const
{
    return m_window && m_window->ReplyMode == 1;
}

bool Poster::OpenPost(int scope)
{
    if (m_window && m_window->posting())
        return false;
    const bool fresh = !m_window;
    frmPostMsg *w = ensureWindow();
    w->PostScope = scope;
    w->ReplyMode = 0;
    w->ReplyReferences.clear();
    w->ReplyInReplyTo.clear();
    if (!w->CheckWindows()) {
        // a refused check unloads the window, an open one too: it must not stay up with a
        // scope that was refused
        if (fresh)
            delete w;
        else
            w->close();
        return false;
    }
    if (!m.isBatch()) {
        w->show();
        w->raise();
        w->activateWindow();
    }
    return true;
}

bool Poster::Reply(const QString &sender, const QString &subject, const QString &messageId,
                   const QString &references, const QString &body)
{
    Q_UNUSED(sender);
    if (m_window && m_window->posting())
        return false;
    const bool fresh = !m_window;
    frmPostMsg *w = ensureWindow();
    w->PostScope = frmPostMsg::CurrentGroup;
    if (!w->CheckWindows()) {
        // a refused check unloads the window, an open one too: it must not stay up with a
        // scope that was refused
        if (fresh)
            delete w;
        else
            w->close();
        return false;
    }
    w->ReplyMode = 1;
    w->ReplyReferences = PostArticle::replyReferences(references, messageId);
    w->ReplyInReplyTo = messageId.trimmed();
    w->txtSubject->setText(PostArticle::replySubject(subject));
    const QString signature = m.store().get(QStringLiteral("Signature"));
    // the text box keeps plain line ends; the article gets CR LF when it is built
    QString text = PostArticle::replyText(signature, body);
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    w->txtMessage->setPlainText(text);
    if (!m.isBatch()) {
        if (!w->isVisible())
            w->setWindowModality(Qt::ApplicationModal);
        w->show();
        w->raise();
        w->activateWindow();
    }
    return true;
}
