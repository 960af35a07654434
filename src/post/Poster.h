#pragma once
#include <QObject>
#include <QPointer>

class frmMain;
#include "post/frmPostMsg.h"

// The Post commands and replies: opens the post window for a scope when its check passes.
class Poster : public QObject {
    Q_OBJECT
public:
    explicit Poster(frmMain &m);

    // menuPostC (2), menuPostG (0), menuPostF (1). True when the window was shown.
    bool OpenPost(int scope);

    // Reply from the message viewer: sender, subject, Message-ID and References of the viewed
    // message, and its text. Shows the post window (modal) with "Re : " + subject and the
    // signature, the 40-dash line and the first 100 characters of the text; the reply goes to
    // the current group and threads under the message. False when no reply may be written now
    // ("Must Be in Message Listing to Use This Function").
    bool Reply(const QString &sender, const QString &subject, const QString &messageId,
               const QString &references, const QString &body);

    // The post window, created on first use (null before).
    frmPostMsg *window() const { return m_window; }
    bool replyMode() const;

private:
    frmPostMsg *ensureWindow();

    frmMain &m;
    QPointer<frmPostMsg> m_window;
};
