#include "news/Session.h"
#include "messages/MessageCache.h"

#include "app/Constants.h"
#include "app/Paths.h"
#include "app/Shell.h"
#include "app/Wait.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QDir>
#include <QFile>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

NewsSession::NewsSession(Shell &shell, ItemList &lstGroups, ItemList &lstMsgBuffer, MessageGrid &grid, QObject *parent)
    : QObject(parent), sh(shell), m_groups(lstGroups), m_msgBuffer(lstMsgBuffer), m_grid(grid)
{
    sh.abortTransaction = [this] {
        if (m_t && m_inTransaction > 0)
            m_t->AbortTransaction();
    };
    sh.wireCommand(QStringLiteral("menuConnect"), [this] {
        sh.S.StopRequested = false;
        ConnectCommand();
    });
    connect(&sh, &Shell::settingsLoaded, this, [this] { CreateTransport(); });
    CreateTransport();
    applyDisconnectedState();
}

NewsSession::~NewsSession()
{
    sh.abortTransaction = nullptr;
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
    if (!sh.opt.ProxyHost.isEmpty()) {
        m_t->SetProxyType(NewsTransport::ProxySocks5);
        m_t->SetProxyHost(sh.opt.ProxyHost);
        m_t->SetProxyPort(sh.opt.ProxyPort);
    }
    m_t->SetTimeout(sh.opt.Timeout);
    m_t->SetCertificateCheck([this](const QString &host, const QString &sha256, const QString &reason) {
        if (isTrustedCertificate(host, sha256))
            return true;
        const auto a = sh.prompter().message(
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
    sh.setStatus(nd::PanelState, QStringLiteral("Click on CONNECT to connect to Server"));
    for (nd::Cmd c : {nd::Cmd::Setup, nd::Cmd::Connect})
        sh.SetMenuState(c, true);
    for (nd::Scope s : nd::cmds::OwnSessionScopes)
        sh.MenuOnOff(s, true);
    for (nd::Cmd c : nd::cmds::OffWithoutSession)
        sh.SetMenuState(c, false);
    for (nd::Scope s : nd::cmds::SessionScopes)
        sh.MenuOnOff(s, false);
}

TransactionResult NewsSession::runTransaction(const std::function<void(NewsTransport *)> &start,
                                              const std::function<void()> &whileWaiting)
{
    if (!m_t)
        CreateTransport();
    sh.S.TransactionDone = false;
    sh.S.TransportError = 0;
    m_lastStatus = 0;
    ++m_inTransaction;
    QPointer<NewsTransport> t = m_t;
    start(m_t);
    nd::waitUntil([&] {
        if (whileWaiting)
            whileWaiting();
        return sh.S.TransactionDone || sh.S.TransportError != 0 || sh.S.StopRequested;
    });
    --m_inTransaction;
    TransactionResult r;
    r.status = m_lastStatus;
    r.text = sh.S.LastTransportText;
    if (sh.S.StopRequested) {
        r.outcome = TransactionResult::Outcome::Stopped;
    } else if (sh.S.TransactionDone && sh.S.TransportError == 0) {
        r.outcome = TransactionResult::Outcome::Done;
    } else {
        r.outcome = TransactionResult::Outcome::Failed;
        r.error = t && t->LastError() != 0 ? t->LastError() : sh.S.TransportError;
    }
    return r;
}

bool NewsSession::isConnected() const
{
    return m_t && (m_t->State() == NewsTransport::StateConnected || m_t->State() == NewsTransport::StateBusy);
}

bool NewsSession::transportClosed() const
{
    return !m_t || m_t->State() == NewsTransport::StateDisconnected;
}

bool NewsSession::IsConnectedIdle(bool warn)
{
    const bool open = isConnected();
    if (open && warn)
        sh.prompter().message(QStringLiteral("Please Disconnect First"), Prompter::Exclamation, Prompter::Ok,
                              QStringLiteral("Newsdredge!"));
    return open;
}

// ------------------------------------------------------------------ connect

void NewsSession::ConnectCommand()
{
    if (m_connectedLook)
        NNTP_Disconnect();
    else
        NNTP_Connect(true);
}

void NewsSession::setConnectedLook(bool connected)
{
    m_connectedLook = connected;
    sh.setConnectedLook(connected);
}

bool NewsSession::NNTP_Connect(bool loadGroups)
{
    sh.S.ConnectingFlag = true;
    if (!m_t)
        CreateTransport();
    m_t->SetTimeout(sh.opt.Timeout);

    if (sh.opt.NNTPServer.isEmpty()) {
        noServerConfigured();
        sh.S.ConnectingFlag = false;
        return false;
    }
    if (m_t->Host() != sh.opt.NNTPServer)
        NNTP_Disconnect();
    if (isConnected()) {
        sh.setBusy(false);
        sh.S.ConnectingFlag = false;
        return true;
    }

    showConnecting();
    startConnect();
    const bool open = waitForConnect();
    if (open)
        connectSucceeded(loadGroups);
    else
        connectFailed();
    sh.setBusy(false);
    sh.S.ConnectingFlag = false;
    return open && isConnected();
}

void NewsSession::noServerConfigured()
{
    sh.prompter().message(QStringLiteral("Newsdredge! has detected no Usenet server configured."), Prompter::Critical);
    const auto a = sh.prompter().message(QStringLiteral("We highly recommend a free Usenet account.  Would you like to go there now?"),
                                         Prompter::Question, Prompter::YesNo, QString(), Prompter::AnswerNo);
    if (a == Prompter::AnswerYes) {
        sh.OpenDocument(QString::fromLatin1(nd::UrlFreeAccount));
    } else {
        sh.prompter().message(QStringLiteral("Please manually configure Newsdredge! with Usenet Server, ID and Password if necessary in setup to use this functionality."));
        sh.runCommand(nd::Cmd::Setup);
    }
}

void NewsSession::showConnecting()
{
    sh.setBusy(true);
    sh.SetMenuState(nd::Cmd::Stop, true);
    sh.S.TransportError = 0;
    sh.S.SecondsTick = 0;
    if (!sh.S.QuietMode) {
        for (nd::Scope s : nd::cmds::OwnSessionScopes)
            sh.MenuOnOff(s, false);
        sh.SetMenuState(nd::Cmd::Setup, false);
        sh.SetMenuState(nd::Cmd::Connect, false);
    }
    sh.setProgressRange(0, sh.opt.Timeout + 1);
    sh.setStatus(nd::PanelState, QStringLiteral("Connecting"));
    sh.setStatus(nd::PanelDetail, QString());
    sh.setStatus(nd::PanelPart, QString());
    sh.UpdateCaption(nd::Caption::Title);
    nd::yieldOnce();
}

void NewsSession::startConnect()
{
    m_t->SetHost(sh.opt.NNTPServer);
    const auto cred = splitCredentials(serverData ? serverData(sh.opt.NNTPServer) : QString());
    sh.S.ServerUserId = cred.first;
    sh.S.ServerPassword = cred.second;
    if (!sh.S.ServerUserId.isEmpty())
        m_t->Connect(sh.opt.NNTPServer, sh.S.ServerUserId, sh.S.ServerPassword);
    else
        m_t->Connect(sh.opt.NNTPServer);
}

// Waits for the greeting and log-in, showing the seconds gone on the progress bar; true once the
// session is open. The transport's error, Stop and the time-out end the wait.
bool NewsSession::waitForConnect()
{
    QPointer<NewsTransport> t = m_t;
    auto open = [&t] { return t && (t->State() == NewsTransport::StateConnected || t->State() == NewsTransport::StateBusy); };
    nd::waitUntil([&] {
        if (!t)
            return true;
        if (sh.S.TransportError == 0)
            sh.S.TransportError = t->LastError();
        sh.setProgress(qMin(sh.S.SecondsTick, sh.progressMaximum()));
        return open() || sh.S.TransportError != 0 || sh.S.StopRequested || sh.S.SecondsTick > sh.opt.Timeout;
    });
    return open();
}

void NewsSession::connectFailed()
{
    if (sh.S.SecondsTick > sh.opt.Timeout && sh.S.TransportError == 0)
        sh.S.LastTransportText = QStringLiteral("No answer from %1 within %2 seconds").arg(sh.opt.NNTPServer).arg(sh.opt.Timeout);
    sh.S.LastFailureReason = QStringLiteral("Could Not Connect ");
    const QString reason = sh.S.LastTransportText;
    NNTP_Disconnect();
    sh.setProgress(0);
    sh.setStatus(nd::PanelDetail, QStringLiteral("Unable to Connect - ") + reason);
    if (!sh.S.QuietMode) {
        for (nd::Scope s : nd::cmds::OwnSessionScopes)
            sh.MenuOnOff(s, true);
        sh.SetMenuState(nd::Cmd::Stop, false);
        sh.SetMenuState(nd::Cmd::Setup, true);
        sh.SetMenuState(nd::Cmd::Connect, true);
    }
}

void NewsSession::connectSucceeded(bool loadGroups)
{
    sh.setViewEnabled(nd::View::Files, true);
    sh.setViewEnabled(nd::View::Addresses, true);
    sh.setProgress(0);
    if (!sh.S.QuietMode) {
        sh.SetMenuState(nd::Cmd::Stop, false);
        sh.SetMenuState(nd::Cmd::Setup, true);
        sh.SetMenuState(nd::Cmd::Connect, true);
        sh.MenuOnOff(nd::Scope::Favorites, false);
        sh.MenuOnOff(nd::Scope::SelectedServers, false);
        setConnectedLook(true);
    }
    sh.S.ServerFileTag = ServerFileTag(sh.opt.NNTPServer);
    if (loadGroups)
        emit sh.groupListWanted(true);
}

// ------------------------------------------------------------------ disconnect

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
    sh.setViewEnabled(nd::View::Groups, false);
    if (!sh.S.QuietMode)
        m_groups.clear();
    // the caches of the server the session was with, not of the one just made current
    deleteServerMessageCaches(m_t && !m_t->Host().isEmpty() ? m_t->Host() : sh.opt.NNTPServer);

    if (!transportClosed()) {
        if (!sh.S.QuietMode)
            showDisconnecting();
        closeTransport();
    }

    CreateTransport();

    if (!sh.S.QuietMode)
        showDisconnected();
    sh.setViewEnabled(nd::View::Groups, true);
    emit sessionClosed();
}

void NewsSession::showDisconnecting()
{
    sh.setBusy(true);
    emit sh.previewCleared();
    sh.SetMenuState(nd::Cmd::Connect, false);
    sh.UpdateCaption(nd::Caption::SavedFiles);
    sh.UpdateCaption(nd::Caption::WebAddresses);
    for (nd::Cmd c : nd::cmds::OffWithoutSession)
        sh.SetMenuState(c, false);
    for (nd::Scope s : nd::cmds::SessionScopes)
        sh.MenuOnOff(s, false);
    for (nd::Scope s : nd::cmds::OwnSessionScopes)
        sh.MenuOnOff(s, true);
}

// Sends QUIT and waits until the transport has closed (or Stop is pressed).
void NewsSession::closeTransport()
{
    sh.setStatus(nd::PanelState, QStringLiteral("Disconnecting"));
    QPointer<NewsTransport> t = m_t;
    t->Disconnect();
    sh.S.TransactionDone = false;
    sh.S.StopRequested = false;
    nd::waitUntil([&] {
        return !t || t->State() == NewsTransport::StateDisconnected || sh.S.TransactionDone || sh.S.StopRequested;
    });
    nd::yieldOnce();
}

void NewsSession::showDisconnected()
{
    setConnectedLook(false);
    m_grid.ResizeGrid();
    m_msgBuffer.clear();
    sh.SetMenuState(nd::Cmd::Connect, true);
    sh.setStatus(nd::PanelState, QStringLiteral("Click on CONNECT to connect to Server"));
    sh.setBusy(false);
}

// ------------------------------------------------------------------ notifications

void NewsSession::Connected(NewsTransport *t)
{
    if (t != m_t)
        return;
    sh.setStatus(nd::PanelState, QStringLiteral("Connected"));
    if (t->CredentialsInClear())
        sh.setStatus(nd::PanelDetail, QStringLiteral("Password sent without encryption (the server offers no STARTTLS)"));
    sh.S.TransactionDone = true;
}

void NewsSession::Disconnected(NewsTransport *t)
{
    if (t != m_t)
        return;
    sh.setStatus(nd::PanelState, QStringLiteral("Disconnected"));
    sh.S.TransactionDone = true;
}

void NewsSession::StateChanged(NewsTransport *, qint32, qint32)
{
}

void NewsSession::Done(NewsTransport *t, qint32 value, bool error, const QString &)
{
    if (t != m_t)
        return;
    m_lastStatus = value;
    if (!error) {
        sh.S.TransactionDone = true;
        return;
    }
    if (!sh.S.QuietMode) {
        // shown after the handler returns, so no box opens inside the transport's signal
        const QString text = sh.S.LastTransportText;
        QTimer::singleShot(0, this, [this, text] { sh.prompter().message(text); });
    }
    sh.S.TransportError = -1;
}

void NewsSession::Debug(NewsTransport *t, const QString &text)
{
    if (t != m_t)
        return;
    sh.S.LastTransportText = text;
    const QString up = text.toUpper();
    if (sh.S.ConnectingFlag && up.contains(QLatin1String("POSTING"))) {
        if (up.contains(QLatin1String("POSTING NOT ALLOWED")))
            sh.S.PostingAllowed = false;
        else if (up.contains(QLatin1String("POSTING OK")))
            sh.S.PostingAllowed = true;
        else if (up.contains(QLatin1String("POSTING ALLOWED")))
            sh.S.PostingAllowed = true;
        else if (up.contains(QLatin1String("NO POSTING")))
            sh.S.PostingAllowed = false;
    }
    if (up.contains(QLatin1String("LIMIT EXCEEDED"))) {
        sh.S.TransportError = -1;
        if (!m_limitHandling) {
            m_limitHandling = true;
            QTimer::singleShot(0, this, [this] { limitExceeded(); });
        }
    }
}

void NewsSession::limitExceeded()
{
    sh.prompter().message(QStringLiteral("We're sorry, but your Download Limit has been exceeded."), Prompter::Critical);
    sh.S.TransportError = -1;
    NNTP_Disconnect();
    const auto a = sh.prompter().message(QStringLiteral("Would you like information on additional download bandwidth?"),
                                         Prompter::Question, Prompter::YesNo, QString(), Prompter::AnswerNo);
    if (a == Prompter::AnswerYes) {
        QUrl url(QString::fromLatin1(nd::UrlBandwidth));
        QUrlQuery q;
        q.addQueryItem(QStringLiteral("S"), sh.opt.NNTPServer.trimmed());
        q.addQueryItem(QStringLiteral("UID"), sh.S.ServerUserId);
        url.setQuery(q);
        sh.OpenDocument(url.toString());
    }
    m_limitHandling = false;
}

void NewsSession::GetReadStream(NewsTransport *, QIODevice *)
{
}
