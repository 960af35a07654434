#include "gui/news/SessionViews.h"

#include "gui/app/frmMain.h"
#include "news/Session.h"

#include <QLabel>

SessionViews::SessionViews(frmMain &w, NewsSession &session) : QObject(&session)
{
    connect(&w.shell(), &Shell::previewCleared, this, [&w] { w.Picture1->clear(); });
    connect(&session, &NewsSession::sessionClosed, this, [&w] { w.lblGrp->setText(QStringLiteral("  Group List")); });
}
