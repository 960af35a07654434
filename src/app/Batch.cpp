#include "app/Batch.h"

#include "app/BatchSupport.h"
#include "app/Paths.h"
#include "app/Signals.h"
#include "gui/app/frmMain.h"
#include "groups/GroupList.h"
#include "messages/MessageList.h"
#include "ui/ItemList.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"
#include "settings/Settings.h"
#include "ui/Prompter.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <cstdio>

namespace nd {

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");

void err(const QString &text)
{
    nd::batch::writeErr(text);
}

void out(const QString &line)
{
    nd::batch::writeOut(line);
}

int usage(const QString &why)
{
    err(QStringLiteral("newsdredge: %1").arg(why));
    err(QStringLiteral("usage: newsdredge --batch --server NAME [--user ID [--password PW|-]] [--newest N] ACTION\n"
                       "  ACTION: --groups | --list GROUP | --download-all GROUP --dest DIR\n"
                       "  the password: --password - reads it from standard input; without --password it is\n"
                       "  taken from NEWSDREDGE_PASSWORD"));
    return 2;
}

// Ctrl+C or a termination request stops the run the way the Stop command does: the set being
// fetched is dropped together with its temporary file.
void stopOnSignals(frmMain &w)
{
    nd::onTerminationSignal(&w, [&w] { w.StopOperation(); });
}

struct Args {
    QString server, user, password, action, group, dest;
    int newest = 0;
};

// The part of a transport failure that tells the user why.
QString reasonOf(frmMain &w)
{
    QString r = w.S.LastTransportText.trimmed();
    return r.isEmpty() ? w.status(2) : r;
}

// ---- Listing of groups and messages for batch runs: the window's own procedures.

bool listGroups(frmMain &w, QStringList &lines)
{
    w.groups->LoadGroupList(false);
    if (w.S.TransportError != 0 || w.S.StopRequested)
        return false;
    for (const QString &item : w.lstGroups->texts()) {
        const QString text = ItemList::withoutMarker(item);
        const qsizetype open = text.lastIndexOf(QLatin1String(" ("));
        const QString count = open >= 0 ? text.mid(open + 2).chopped(1) : QStringLiteral("0");
        lines << GroupList::CleanNewsGroup(item) + QLatin1Char('\t') + count;
    }
    return true;
}

bool listMessages(frmMain &w, const QString &group)
{
    w.S.CurrentGroup = group;
    w.messages->ListMessages(false);
    return w.S.TransportError == 0;
}

} // namespace

int runBatch(const QStringList &arguments)
{
    Args a;
    bool passwordGiven = false;
    for (int i = 1; i < arguments.size(); ++i) {
        const QString &k = arguments[i];
        auto value = [&](QString &to) {
            if (i + 1 >= arguments.size())
                return false;
            to = arguments[++i];
            return true;
        };
        bool ok = true;
        if (k == QLatin1String("--batch"))
            continue;
        if (k == QLatin1String("--server"))
            ok = value(a.server);
        else if (k == QLatin1String("--user"))
            ok = value(a.user);
        else if (k == QLatin1String("--password"))
            ok = value(a.password), passwordGiven = true;
        else if (k == QLatin1String("--dest"))
            ok = value(a.dest);
        else if (k == QLatin1String("--newest")) {
            QString n;
            ok = value(n);
            a.newest = n.toInt(&ok);
            ok = ok && a.newest > 0;
        } else if (k == QLatin1String("--groups")) {
            ok = a.action.isEmpty();
            a.action = k;
        } else if (k == QLatin1String("--list") || k == QLatin1String("--download-all")) {
            ok = a.action.isEmpty() && value(a.group);
            a.action = k;
        } else
            return usage(QStringLiteral("unknown argument \"%1\"").arg(k));
        if (!ok)
            return usage(QStringLiteral("\"%1\" needs a value, or is given twice").arg(k));
    }
    if (a.server.isEmpty())
        return usage(QStringLiteral("--server is required"));
    if (a.action.isEmpty())
        return usage(QStringLiteral("no action given"));
    if (a.action == QLatin1String("--download-all") && a.dest.isEmpty())
        return usage(QStringLiteral("--download-all needs --dest DIR"));
    QString why;
    if ((passwordGiven || !a.user.isEmpty()) && !nd::batch::resolvePassword(a.password, passwordGiven, &a.password, &why))
        return usage(why);
    if (a.user.isEmpty() != a.password.isEmpty())
        return usage(QStringLiteral("--user and --password go together"));
    // before the program changes its working directory
    const QString dest = a.dest.isEmpty() ? QString() : withTrailingSlash(QDir(a.dest).absolutePath());
    if (!dest.isEmpty() && !QDir().mkpath(dest))
        return usage(QStringLiteral("cannot create the download directory %1").arg(dest));

    BatchPrompter prompter;
    frmMain w(&prompter, frmMain::Options{true, true});
    // the user's settings, never written back (the store of a batch window is read-only)
    cleanAppTempFiles();
    QDir::setCurrent(cacheDir());
    readSettings(w.opt, w.store());
    w.opt.NNTPServer = a.server;
    if (a.newest > 0)
        w.opt.NewMsgs = a.newest;
    if (!dest.isEmpty())
        w.opt.DestDir = dest;
    // the program's own leftovers of an earlier run, as at every start
    cleanDownloadTempFiles(w.opt.DestDir);
    stopOnSignals(w);
    nd::batch::recordTerminationSignals();
    if (!a.user.isEmpty()) {
        const QString cred = a.user + QStringLiteral("|||") + a.password;
        w.session->serverData = [cred](const QString &) { return cred; };
    }

    w.session->NNTP_Connect(false);
    NewsTransport *t = w.session->transport();
    if (!t || t->StateText() != Connected) {
        err(QStringLiteral("newsdredge: could not connect to %1: %2").arg(a.server, reasonOf(w)));
        return nd::batch::exitStatus(3);
    }

    int status = 0;
    if (a.action == QLatin1String("--groups")) {
        QStringList lines;
        if (!listGroups(w, lines)) {
            err(QStringLiteral("newsdredge: the group list could not be read: %1").arg(reasonOf(w)));
            status = 4;
        } else {
            for (const QString &l : lines)
                out(l);
        }
    } else if (!listMessages(w, a.group)) {
        err(QStringLiteral("newsdredge: the group %1 could not be listed: %2").arg(a.group, reasonOf(w)));
        status = 4;
    } else if (a.action == QLatin1String("--list")) {
        for (int r = 1; r <= w.grid->lastMessageRow(); ++r)
            out(w.grid->rowCells(r).mid(0, 8).join(QLatin1Char('\t')));
    } else {
        QObject::connect(w.downloader, &Downloader::fileSaved, [](const QString &path) { out(path); });
        w.S.StopRequested = false;
        w.downloader->DownloadAll();
        if (w.S.StopRequested) {
            err(QStringLiteral("newsdredge: stopped"));
            status = 5;
        } else if (w.S.TransportError != 0) {
            err(QStringLiteral("newsdredge: downloading from %1 failed: %2 %3").arg(a.group, w.status(1), reasonOf(w)).trimmed());
            status = 5;
        }
    }
    w.session->NNTP_Disconnect();
    return nd::batch::exitStatus(status);
}

} // namespace nd
