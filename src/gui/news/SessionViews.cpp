#include "gui/news/SessionViews.h"

#include "gui/app/frmMain.h"
#include "news/Session.h"

#include <QLabel>
#include <QPointer>

SessionViews::SessionViews(frmMain &w, NewsSession &session) : QObject(&session)
{
    w.transportStateText = [s = QPointer<NewsSession>(&session)] {
        return s && s->transport() ? s->transport()->StateText() : QStringLiteral("Disconnected from NNTP Server");
    };
    connect(&w.shell(), &Shell::previewCleared, this, [&w] { w.Picture1->clear(); });
    connect(&session, &NewsSession::sessionClosed, this, [&w] { w.lblGrp->setText(QStringLiteral("  Group List")); });
}
