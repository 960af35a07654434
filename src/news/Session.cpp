#include "news/Session.h"
#include "messages/MessageCache.h"

#include "app/Constants.h"
#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QListView>
#include <QProgressBar>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

static const QString StateConnected = QStringLiteral("Connected to NNTP Server");
static const QString StateDisconnected = QStringLiteral("Disconnected from NNTP Server");

NewsSession::NewsSession(frmMain &main)
    : QObject(&main), m(main)
{
    m.transportStateText = [this] { return m_t ? m_t->StateText() : StateDisconnected; };
    m.abortTransaction = [this] {
        if (m_t && m_inTransaction > 0)
            m_t->AbortTransaction();
    };
    m.wireCommand(QStringLiteral("menuConnect"), [this] {
        m.S.StopRequested = false;
        ConnectCommand();
    });
    connect(&m, &frmMain::settingsLoaded, this, [this] { CreateTransport(); });
    CreateTransport();
    applyDisconnectedState();
}

NewsSession::~NewsSession()
{
    m.transportStateText = [] { return StateDisconnected; };
    m.abortTransaction = nullptr;
}

QString NewsSession::ServerFileTag(const QString &server)
{
    QString tag = server;
    for (QChar c : {QLatin1Char('.'), QLatin1Char('/'), QLatin1Char(':'), QLatin1Char('\\')})
        tag.replace(c, QLatin1Char('_'));
    return tag;
}

QPair<QString, QString> NewsSession::splitCredentials(const QString &data)
{
    const qsizetype sep = data.indexOf(QLatin1String("|||"));
    if (sep < 0)
        return {};
    return {data.left(sep), data.mid(sep + 3)};
}

static QString trustFile()
{
    return nd::appFile(QStringLiteral("TrustedCertificates.txt"));
}

bool NewsSession::isTrustedCertificate(const QString &host, const QString &sha256)
{
    QFile f(trustFile());
    if (!f.open(QIODevice::ReadOnly))
        return false;
    const QByteArray want = (host + QLatin1Char(' ') + sha256).toUtf8();
    while (!f.atEnd())
        if (f.readLine().trimmed() == want)
            return true;
    return false;
}

void NewsSession::trustCertificate(const QString &host, const QString &sha256)
{
    QFile f(trustFile());
    if (f.open(QIODevice::Append)) {
        f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        f.write((host + QLatin1Char(' ') + sha256 + QLatin1Char('\n')).toUtf8());
    }
}

void NewsSession::CreateTransport()
{
    if (m_t) {
        m_t->disconnect(this);
        m_t->SetNotify(nullptr);
        m_t->deleteLater();
    }
    m_t = new NewsTransport(this);
    m_t->SetNotify(this);
    m_t->SetOption(0);
    if (!m.opt.ProxyHost.isEmpty()) {
        m_t->SetProxyType(3);
        m_t->SetProxyHost(m.opt.ProxyHost);
        m_t->SetProxyPort(m.opt.ProxyPort);
    }
    m_t->SetTimeout(m.opt.Timeout);
    m_t->SetCertificateCheck([this](const QString &host, const QString &sha256, const QString &reason) {
        if (isTrustedCertificate(host, sha256))
            return true;
        const auto a = m.prompter().message(
            QStringLiteral("The certificate of %1 could not be verified:\n%2\n\nSHA-256 fingerprint:\n%3\n\n"
                           "Trust this certificate for this server from now on?")
                .arg(host, reason, sha256),
            Prompter::Exclamation, Prompter::YesNo, QStringLiteral("Newsdredge!"), Prompter::AnswerNo);
        if (a != Prompter::AnswerYes)
            return false;
        trustCertificate(host, sha256);
        return true;
    });
}

void NewsSession::applyDisconnectedState()
{
    m.setStatus(1, QStringLiteral("Click on CONNECT to connect to Server"));
    for (int code : {1, 5})
        m.SetMenuState(code, true);
    for (const char *scope : {"FA", "SS", "SR"})
        m.MenuOnOff(QString::fromLatin1(scope), true);
    for (int code : {4, 3, 7, 8, 9, 52, 53})
        m.SetMenuState(code, false);
    for (const char *scope : {"CG", "SM", "SG"})
        m.MenuOnOff(QString::fromLatin1(scope), false);
}

bool NewsSession::runTransaction(const std::function<void(NewsTransport *)> &start)
{
    if (!m_t)
        CreateTransport();
    m.S.TransactionDone = false;
    m.S.TransportError = 0;
    ++m_inTransaction;
    start(m_t);
    nd::waitUntil([this] { return m.S.TransactionDone || m.S.TransportError != 0 || m.S.StopRequested; });
    --m_inTransaction;
    return m.S.TransactionDone && m.S.TransportError == 0 && !m.S.StopRequested;
}

// ------------------------------------------------------------------ connect / disconnect

void NewsSession::ConnectCommand()
{
    QAction *a = m.action(QStringLiteral("menuConnect"));
    if (a && a->text() == QLatin1String("&Disconnect"))
        NNTP_Disconnect();
    else
        NNTP_Connect(true);
}

void NewsSession::NNTP_Connect(bool loadGroups)
{
    m.S.ConnectingFlag = true;
    if (!m_t)
        CreateTransport();
    m_t->SetTimeout(m.opt.Timeout);

    if (m.opt.NNTPServer.isEmpty()) {
        m.prompter().message(QStringLiteral("Newsdredge! has detected no Usenet server configured."), Prompter::Critical);
        const auto a = m.prompter().message(QStringLiteral("We highly recommend a free Usenet account.  Would you like to go there now?"),
                                            Prompter::Question, Prompter::YesNo, QString(), Prompter::AnswerNo);
        if (a == Prompter::AnswerYes) {
            m.OpenDocument(QString::fromLatin1(nd::UrlFreeAccount));
        } else {
            m.prompter().message(QStringLiteral("Please manually configure Newsdredge! with Usenet Server, ID and Password if necessary in setup to use this functionality."));
            if (QAction *setup = m.action(QStringLiteral("menuSetup")); setup && m.commandBuilt(QStringLiteral("menuSetup")))
                setup->trigger();
        }
        m.S.ConnectingFlag = false;
        return;
    }

    if (m_t->Host() != m.opt.NNTPServer)
        NNTP_Disconnect();

    if (m_t->StateText() == StateConnected) {
        m.setBusy(false);
        m.S.ConnectingFlag = false;
        return;
    }

    m.setBusy(true);
    m.SetMenuState(4, true);
    m.S.TransportError = 0;
    m.S.SecondsTick = 0;
    if (!m.S.QuietMode) {
        for (const char *scope : {"FA", "SS", "SR"})
            m.MenuOnOff(QString::fromLatin1(scope), false);
        m.SetMenuState(1, false);
        m.SetMenuState(5, false);
    }
    m.progBar->setRange(0, m.opt.Timeout + 1);
    m.setStatus(1, QStringLiteral("Connecting"));
    m.setStatus(2, QString());
    m.setStatus(3, QString());
    m.UpdateCaption(QStringLiteral("5"));
    nd::yieldOnce();

    m_t->SetHost(m.opt.NNTPServer);
    const auto cred = splitCredentials(serverData ? serverData(m.opt.NNTPServer) : QString());
    m.S.ServerUserId = cred.first;
    m.S.ServerPassword = cred.second;
    if (!m.S.ServerUserId.isEmpty())
        m_t->Connect(m.opt.NNTPServer, m.S.ServerUserId, m.S.ServerPassword);
    else
        m_t->Connect(m.opt.NNTPServer);

    QPointer<NewsTransport> t = m_t;
    nd::waitUntil([&] {
        if (!t)
            return true;
        if (m.S.TransportError == 0)
            m.S.TransportError = t->LastError();
        m.progBar->setValue(qMin(m.S.SecondsTick, m.progBar->maximum()));
        return t->StateText() == StateConnected || m.S.TransportError != 0 || m.S.StopRequested
            || m.S.SecondsTick > m.opt.Timeout;
    });

    if (!t || t->StateText() != StateConnected) {
        if (m.S.SecondsTick > m.opt.Timeout && m.S.TransportError == 0)
            m.S.LastTransportText = QStringLiteral("No answer from %1 within %2 seconds").arg(m.opt.NNTPServer).arg(m.opt.Timeout);
        m.S.LastFailureReason = QStringLiteral("Could Not Connect ");
        const QString reason = m.S.LastTransportText;
        NNTP_Disconnect();
        m.progBar->setValue(0);
        m.setStatus(2, QStringLiteral("Unable to Connect - ") + reason);
        if (!m.S.QuietMode) {
            for (const char *scope : {"FA", "SS", "SR"})
                m.MenuOnOff(QString::fromLatin1(scope), true);
            m.SetMenuState(4, false);
            m.SetMenuState(1, true);
            m.SetMenuState(5, true);
        }
    } else {
        m.lstFilesView->setEnabled(true);
        m.lstHTTPView->setEnabled(true);
        m.progBar->setValue(0);
        if (!m.S.QuietMode) {
            m.SetMenuState(4, false);
            m.SetMenuState(1, true);
            m.SetMenuState(5, true);
            m.MenuOnOff(QStringLiteral("FA"), false);
            m.MenuOnOff(QStringLiteral("SS"), false);
            m.setToolKey(QStringLiteral("Connect"), QStringLiteral("Disconnect"));
            if (QAction *b = m.toolButton(QStringLiteral("Disconnect")))
                b->setToolTip(QStringLiteral("Disconnect"));
            if (QAction *a = m.action(QStringLiteral("menuConnect")))
                a->setText(QStringLiteral("&Disconnect"));
        }
        m.S.ServerFileTag = ServerFileTag(m.opt.NNTPServer);
        if (loadGroups)
            emit m.groupListWanted(true);
    }
    m.setBusy(false);
    m.S.ConnectingFlag = false;
}

void NewsSession::deleteServerMessageCaches(const QString &server)
{
    if (server.isEmpty())
        return;
    listing::waitForCacheWrites();   // none may come back after the delete
    QDir dir(nd::appDir());
    const QStringList files = dir.entryList({ServerFileTag(server) + QStringLiteral("-*.tmp")}, QDir::Files);
    for (const QString &f : files)
        QFile::remove(dir.filePath(f));
}

void NewsSession::NNTP_Disconnect()
{
    nd::yieldOnce();
    m.lstGroupsView->setEnabled(false);
    if (!m.S.QuietMode)
        m.lstGroups->clear();
    // the caches of the server the session was with, not of the one just made current
    deleteServerMessageCaches(m_t && !m_t->Host().isEmpty() ? m_t->Host() : m.opt.NNTPServer);

    if (m_t && m_t->StateText() != StateDisconnected) {
        if (!m.S.QuietMode) {
            m.setBusy(true);
            emit m.previewCleared();
            m.Picture1->clear();
            m.SetMenuState(5, false);
            m.UpdateCaption(QStringLiteral("3"));
            m.UpdateCaption(QStringLiteral("4"));
            for (int code : {4, 3, 7, 8, 53, 52, 9})
                m.SetMenuState(code, false);
            m.MenuOnOff(QStringLiteral("CG"), false);
            m.MenuOnOff(QStringLiteral("FA"), true);
            m.MenuOnOff(QStringLiteral("SS"), true);
            m.MenuOnOff(QStringLiteral("SM"), false);
            m.MenuOnOff(QStringLiteral("SG"), false);
            m.MenuOnOff(QStringLiteral("SR"), true);
            if (QAction *post = m.action(QStringLiteral("menuPost")))
                post->setVisible(true);
            if (QAction *b = m.toolButton(QStringLiteral("Post")))
                b->setVisible(true);
        }
        m.setStatus(1, QStringLiteral("Disconnecting"));
        QPointer<NewsTransport> t = m_t;
        t->Disconnect();
        m.S.TransactionDone = false;
        m.S.StopRequested = false;
        nd::waitUntil([&] {
            return !t || t->StateText() == StateDisconnected || m.S.TransactionDone || m.S.StopRequested;
        });
        nd::yieldOnce();
    }

    CreateTransport();

    if (!m.S.QuietMode) {
        m.setToolKey(QStringLiteral("Disconnect"), QStringLiteral("Connect"));
        if (QAction *b = m.toolButton(QStringLiteral("Connect")))
            b->setToolTip(QStringLiteral("Connect"));
        if (QAction *a = m.action(QStringLiteral("menuConnect")))
            a->setText(QStringLiteral("&Connect to Server"));
        m.grid->ResizeGrid();
        m.lstMsgBuffer->clear();
        m.SetMenuState(5, true);
        m.setStatus(1, QStringLiteral("Click on CONNECT to connect to Server"));
        m.setBusy(false);
    }
    m.lblGrp->setText(QStringLiteral("  Group List"));
    m.lstGroupsView->setEnabled(true);
}

// ------------------------------------------------------------------ notifications

void NewsSession::Connected(NewsTransport *t)
{
    if (t != m_t)
        return;
    m.setStatus(1, QStringLiteral("Connected"));
    if (t->CredentialsInClear())
        m.setStatus(2, QStringLiteral("Password sent without encryption (the server offers no STARTTLS)"));
    m.S.TransactionDone = true;
}

void NewsSession::Disconnected(NewsTransport *t)
{
    if (t != m_t)
        return;
    m.setStatus(1, QStringLiteral("Disconnected"));
    m.S.TransactionDone = true;
}

void NewsSession::StateChanged(NewsTransport *, qint32, qint32)
{
}

void NewsSession::Done(NewsTransport *t, qint32, bool error, const QString &)
{
    if (t != m_t)
        return;
    if (!error) {
        m.S.TransactionDone = true;
        return;
    }
    if (!m.S.QuietMode) {
        // shown after the handler returns, so no box opens inside the transport's signal
        const QString text = m.S.LastTransportText;
        QTimer::singleShot(0, &m, [this, text] { m.prompter().message(text); });
    }
    m.S.TransportError = -1;
}

void NewsSession::Debug(NewsTransport *t, const QString &text)
{
    if (t != m_t)
        return;
    m.S.LastTransportText = text;
    const QString up = text.toUpper();
    if (m.S.ConnectingFlag && up.contains(QLatin1String("POSTING"))) {
        if (up.contains(QLatin1String("POSTING NOT ALLOWED")))
            m.S.PostingAllowed = false;
        else if (up.contains(QLatin1String("POSTING OK")))
            m.S.PostingAllowed = true;
        else if (up.contains(QLatin1String("POSTING ALLOWED")))
            m.S.PostingAllowed = true;
        else if (up.contains(QLatin1String("NO POSTING")))
            m.S.PostingAllowed = false;
    }
    if (up.contains(QLatin1String("LIMIT EXCEEDED"))) {
        m.S.TransportError = -1;
        if (!m_limitHandling) {
            m_limitHandling = true;
            QTimer::singleShot(0, this, [this] { limitExceeded(); });
        }
    }
}

void NewsSession::limitExceeded()
{
    m.prompter().message(QStringLiteral("We're sorry, but your Download Limit has been exceeded."), Prompter::Critical);
    m.S.TransportError = -1;
    NNTP_Disconnect();
    const auto a = m.prompter().message(QStringLiteral("Would you like information on additional download bandwidth?"),
                                        Prompter::Question, Prompter::YesNo, QString(), Prompter::AnswerNo);
    if (a == Prompter::AnswerYes) {
        QUrl url(QString::fromLatin1(nd::UrlBandwidth));
        QUrlQuery q;
        q.addQueryItem(QStringLiteral("S"), m.opt.NNTPServer.trimmed());
        q.addQueryItem(QStringLiteral("UID"), m.S.ServerUserId);
        url.setQuery(q);
        m.OpenDocument(url.toString());
    }
    m_limitHandling = false;
}

void NewsSession::GetReadStream(NewsTransport *, QIODevice *)
{
}
