#include "app/Batch.h"

#include "app/BatchShell.h"
#include "app/BatchSupport.h"
#include "app/Core.h"
#include "app/Paths.h"
#include "app/Signals.h"
#include "download/Downloader.h"
#include "groups/GroupList.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "settings/Settings.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QDir>

namespace nd {

namespace {

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

struct Args {
    QString server, user, password, action, group, dest;
    int newest = 0;
};

// The part of a transport failure that tells the user why.
QString reasonOf(Shell &sh)
{
    const QString r = sh.S.LastTransportText.trimmed();
    return r.isEmpty() ? sh.status(PanelDetail) : r;
}

// ---- The program's own procedures, over a core with no window.

bool listGroups(Core &core, QStringList &lines)
{
    if (!core.groups->LoadGroupList(false).ok())
        return false;
    for (const QString &item : core.lstGroups->texts()) {
        const QString text = ItemList::withoutMarker(item);
        const qsizetype open = text.lastIndexOf(QLatin1String(" ("));
        const QString count = open >= 0 ? text.mid(open + 2).chopped(1) : QStringLiteral("0");
        lines << GroupList::CleanNewsGroup(item) + QLatin1Char('\t') + count;
    }
    return true;
}

bool listMessages(Core &core, const QString &group)
{
    core.shell().S.CurrentGroup = group;
    return !core.messages->listMessages(false).failed;
}

// Ctrl+C or a termination request stops the run the way the Stop command does: the set being
// fetched is dropped together with its temporary file.
void stopOnSignals(Shell &sh)
{
    nd::onTerminationSignal(&sh, [&sh] { sh.StopOperation(); });
}

// The command line, checked; an empty text when it is right, else what is wrong with it.
QString parseArguments(const QStringList &arguments, Args &a)
{
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
            return QStringLiteral("unknown argument \"%1\"").arg(k);
        if (!ok)
            return QStringLiteral("\"%1\" needs a value, or is given twice").arg(k);
    }
    if (a.server.isEmpty())
        return QStringLiteral("--server is required");
    if (a.action.isEmpty())
        return QStringLiteral("no action given");
    if (a.action == QLatin1String("--download-all") && a.dest.isEmpty())
        return QStringLiteral("--download-all needs --dest DIR");
    QString why;
    if ((passwordGiven || !a.user.isEmpty()) && !nd::batch::resolvePassword(a.password, passwordGiven, &a.password, &why))
        return why;
    if (a.user.isEmpty() != a.password.isEmpty())
        return QStringLiteral("--user and --password go together");
    // before the program changes its working directory
    if (!a.dest.isEmpty()) {
        a.dest = withTrailingSlash(QDir(a.dest).absolutePath());
        if (!QDir().mkpath(a.dest))
            return QStringLiteral("cannot create the download directory %1").arg(a.dest);
    }
    return QString();
}

// The action of the run, over a connected session; the exit status before signals count.
int runAction(Core &core, const Args &a)
{
    Shell &sh = core.shell();
    if (a.action == QLatin1String("--groups")) {
        QStringList lines;
        if (!listGroups(core, lines)) {
            err(QStringLiteral("newsdredge: the group list could not be read: %1").arg(reasonOf(sh)));
            return 4;
        }
        for (const QString &l : lines)
            out(l);
        return 0;
    }
    if (!listMessages(core, a.group)) {
        err(QStringLiteral("newsdredge: the group %1 could not be listed: %2").arg(a.group, reasonOf(sh)));
        return 4;
    }
    if (a.action == QLatin1String("--list")) {
        for (int r = 1; r <= core.grid->lastMessageRow(); ++r)
            out(core.grid->rowCells(r).mid(0, MessageGrid::ColMark).join(QLatin1Char('\t')));
        return 0;
    }
    QObject::connect(core.downloader, &Downloader::fileSaved, [](const QString &path) { out(path); });
    sh.S.StopRequested = false;
    const int error = core.downloader->DownloadAll();
    if (sh.S.StopRequested) {
        err(QStringLiteral("newsdredge: stopped"));
        return 5;
    }
    if (error != 0) {
        err(QStringLiteral("newsdredge: downloading from %1 failed: %2 %3")
                .arg(a.group, sh.status(PanelState), reasonOf(sh))
                .trimmed());
        return 5;
    }
    return 0;
}

} // namespace

int runBatch(const QStringList &arguments)
{
    Args a;
    if (const QString wrong = parseArguments(arguments, a); !wrong.isEmpty())
        return usage(wrong);

    BatchPrompter prompter;
    BatchShell sh(&prompter);
    Core core(sh);
    core.createAreas();
    // the user's settings, never written back (a batch shell's store is read-only)
    cleanAppTempFiles();
    QDir::setCurrent(cacheDir());
    readSettings(sh.opt, sh.store());
    sh.opt.NNTPServer = a.server;
    if (a.newest > 0)
        sh.opt.NewMsgs = a.newest;
    if (!a.dest.isEmpty())
        sh.opt.DestDir = a.dest;
    emit sh.settingsLoaded();
    // the program's own leftovers of an earlier run, as at every start
    cleanDownloadTempFiles(sh.opt.DestDir);
    stopOnSignals(sh);
    nd::batch::recordTerminationSignals();
    if (!a.user.isEmpty()) {
        const QString cred = a.user + QStringLiteral("|||") + a.password;
        core.session->serverData = [cred](const QString &) { return cred; };
    }

    if (!core.session->NNTP_Connect(false)) {
        err(QStringLiteral("newsdredge: could not connect to %1: %2").arg(a.server, reasonOf(sh)));
        return nd::batch::exitStatus(3);
    }

    const int status = runAction(core, a);
    core.session->NNTP_Disconnect();
    return nd::batch::exitStatus(status);
}

} // namespace nd
