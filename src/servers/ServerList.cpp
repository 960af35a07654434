#include "servers/ServerList.h"

#include "app/Constants.h"
#include "app/Paths.h"
#include "app/Wait.h"
#include "app/Shell.h"
#include "news/Session.h"
#include "news/transport/NewsMessage.h"
#include "servers/SecretStore.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QSaveFile>
#include <QScopeGuard>
#include <QSet>
#include <algorithm>

const QString ServerList::Unchecked = QStringLiteral("????? ???    ");
const QString ServerList::Separator = QStringLiteral("|||");

namespace {
const QString Title = QStringLiteral("Newsdredge!");
const QString TextFilter = QStringLiteral("Text (*.txt)|*.txt");
} // namespace

ServerList::ServerList(Shell &shell, NewsSession *session, QObject *parent)
    : QObject(parent), sh(shell)
{
    lstServs = new ItemList(this);
    ensureLoaded();
    if (session)
        session->serverData = [this](const QString &server) { return serverData(server); };
}

ServerList::~ServerList() = default;

QString ServerList::listFile()
{
    return nd::appFile(QStringLiteral("NNTP_NET.INI"));
}

bool ServerList::load()
{
    m_loaded = true;
    ++m_changing;
    const auto done = qScopeGuard([this] { --m_changing; });
    if (!QFileInfo::exists(listFile())) {
        lstServs->clear();
        return true;
    }
    if (!lstServs->loadWithSecond(listFile()))
        return false;
    // passwords kept in the secret service come back beside their user names
    for (int i = 0; i < lstServs->count(); ++i) {
        const auto [user, password] = splitCredentials(lstServs->secondText(i));
        bool found = false;
        const QString kept = user.isEmpty() || !password.isEmpty()
                                 ? QString()
                                 : nd::secrets::readPassword(ItemList::serverNameOf(lstServs->text(i)), user, &found);
        if (found)
            lstServs->setSecondText(i, user + Separator + kept);
    }
    return true;
}

bool ServerList::save()
{
    if (sh.store().readOnly())
        return false;   // batch runs never change the user's files
    // Where a secret service holds a password, the file keeps only the user name.
    ++m_changing;
    const auto done = qScopeGuard([this] { --m_changing; });
    QList<QPair<int, QString>> inFile;
    for (int i = 0; i < lstServs->count(); ++i) {
        const QString data = lstServs->secondText(i);
        const auto [user, password] = splitCredentials(data);
        if (!user.isEmpty() && !password.isEmpty() &&
            nd::secrets::storePassword(ItemList::serverNameOf(lstServs->text(i)), user, password)) {
            inFile.append({i, data});
            lstServs->setSecondText(i, user + Separator);
        }
    }
    const bool ok = lstServs->saveWithSecond(listFile(), /*ownerOnly*/ true);
    for (const auto &[i, data] : std::as_const(inFile))
        lstServs->setSecondText(i, data);
    return ok;
}

void ServerList::ensureLoaded()
{
    if (!m_loaded)
        load();
}

void ServerList::sortDescending()
{
    struct Entry {
        QString text, second;
    };
    ++m_changing;
    const auto done = qScopeGuard([this] { --m_changing; });
    QVector<Entry> items;
    items.reserve(lstServs->count());
    for (int i = 0; i < lstServs->count(); ++i)
        items.append({lstServs->text(i), lstServs->secondText(i)});
    // A sorted copy read back from its last item to its first.
    std::stable_sort(items.begin(), items.end(), [](const Entry &a, const Entry &b) { return a.text < b.text; });
    lstServs->clear();
    for (auto it = items.crbegin(); it != items.crend(); ++it)
        lstServs->add(it->text, it->second);
}

void ServerList::loadSortAndSave()
{
    load();
    refreshCaption();
    sortDescending();
    save();
}

int ServerList::findServer(const QString &name) const
{
    return lstServs->findServer(name);
}

QString ServerList::serverData(const QString &server)
{
    ensureLoaded();
    const int i = findServer(server);
    return i < 0 ? QString() : lstServs->secondText(i);
}

QPair<QString, QString> ServerList::splitCredentials(const QString &data)
{
    const qsizetype sep = data.indexOf(Separator);
    if (sep < 0)
        return {};
    return {data.left(sep), data.mid(sep + Separator.size())};
}

QPair<QString, QString> ServerList::credentialsFor(const QString &server)
{
    return splitCredentials(serverData(server));
}

void ServerList::makeCurrent(int index)
{
    if (index < 0 || index >= lstServs->count())
        return;
    lstServs->clearSelection();
    lstServs->setSelected(index, true);
    lstServs->setCurrentIndex(index);
    sh.opt.NNTPServer = ItemList::serverNameOf(lstServs->text(index));
    emit currentServerChanged(index);
}

void ServerList::setCredentials(int index, const QString &user, const QString &password)
{
    if (index < 0 || index >= lstServs->count())
        return;
    // nothing typed keeps no credential string at all
    lstServs->setSecondText(index, user.isEmpty() && password.isEmpty() ? QString() : user + Separator + password);
    sh.S.ServerUserId = user;
    sh.S.ServerPassword = password;
}

bool ServerList::isValidAddress(const QString &address)
{
    if (address.isEmpty() || address.contains(QLatin1Char(' ')) || address.contains(QLatin1Char('\t')))
        return false;
    return parseServerAddress(address).valid;
}

QString ServerList::importName(const QString &entry)
{
    if (!entry.contains(QLatin1Char('.')))
        return QString();
    QString s = entry.trimmed();
    for (const QString &cut : {QStringLiteral(" "), QStringLiteral("\r\n"), QStringLiteral("\n"), QStringLiteral("\t")}) {
        const qsizetype at = s.indexOf(cut);
        if (at >= 0)
            s.truncate(at);
    }
    if (!s.contains(QLatin1Char('.')) || !isValidAddress(s))
        return QString();
    return s;
}

QStringList ServerList::splitEntries(const QByteArray &data)
{
    QStringList out;
    const QString text = textFromBytes(data);
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text.at(i) == QLatin1Char('\n') || text.at(i) == QLatin1Char('\r')
            || text.at(i) == QLatin1Char(',')) {
            if (i > start)
                out.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    return out;
}

QString ServerList::openServerItem(const QString &entry)
{
    const qsizetype star = entry.indexOf(QLatin1Char('*'));
    if (star < 0)
        return QString();
    QString item = entry.left(star).trimmed();
    const QString name = ItemList::serverNameOf(item);
    if (!isValidAddress(name))
        return QString();
    if (!item.contains(QLatin1Char(' ')))
        item = Unchecked + item;   // a bare host name: not checked yet
    return item;
}

void ServerList::refreshCaption()
{
    sh.setServerCount(lstServs->count());
    sh.UpdateCaption(nd::Caption::ServerCount);
    emit captionChanged(QStringLiteral("NNTP Servers (%1)").arg(lstServs->count()));
}

QSet<QString> ServerList::serverNames() const
{
    QSet<QString> names;
    for (int i = 0; i < lstServs->count(); ++i)
        names.insert(ItemList::serverNameOf(lstServs->text(i)));
    return names;
}

// ------------------------------------------------------------------ commands

void ServerList::menuNew()
{
    const auto answer = sh.prompter().input(QStringLiteral("Enter NNTP Server Address :"), Title);
    if (!answer)
        return;
    const QString address = answer->trimmed();
    if (address.isEmpty())
        return;
    if (findServer(address) >= 0) {
        sh.prompter().message(QStringLiteral("Duplicate Address"), Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    if (!isValidAddress(address)) {
        sh.prompter().message(QStringLiteral("\"%1\" is not a server address. Write host, host:port or nntps://host[:port], without blanks.")
                                  .arg(address),
                              Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    sh.setBusy(true);
    const int index = lstServs->add(Unchecked + address);
    makeCurrent(index);
    refreshCaption();
    sh.setBusy(false);
}

void ServerList::menuFind()
{
    const auto answer = sh.prompter().input(QStringLiteral("Enter Server Name: "), QStringLiteral("Enter Server Name"));
    if (!answer || answer->trimmed().isEmpty())
        return;
    const QString name = answer->trimmed();
    int index = findServer(name);
    if (index < 0) {
        // also a part of a name, e.g. "giganews"
        for (int i = 0; i < lstServs->count() && index < 0; ++i)
            if (ItemList::serverNameOf(lstServs->text(i)).contains(name, Qt::CaseInsensitive))
                index = i;
    }
    if (index < 0) {
        sh.prompter().message(QStringLiteral("Not Found"), Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    makeCurrent(index);
}

void ServerList::menuDelete()
{
    sh.setBusy(true);
    ++m_changing;
    emit viewFrozen(true);
    int i = 0;
    while (i < lstServs->count()) {
        if (!lstServs->isSelected(i)) {
            ++i;
            continue;
        }
        const QString name = ItemList::serverNameOf(lstServs->text(i));
        lstServs->remove(i);   // the next item moves into this index
        const QString cache = nd::cacheDir() + QLatin1Char('/') + NewsSession::ServerFileTag(name);
        if (QFileInfo(cache).isFile())
            QFile::remove(cache);
    }
    // no item is current afterwards: credentials typed now would land on a neighbour
    lstServs->setCurrentIndex(-1);
    --m_changing;
    emit viewFrozen(false);
    emit currentServerChanged(-1);
    refreshCaption();
    sh.setBusy(false);
}

int ServerList::importFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        sh.prompter().message(QStringLiteral("Could not read %1:\n%2").arg(path, f.errorString()), Prompter::Exclamation,
                              Prompter::Ok, Title);
        return 0;
    }
    QSet<QString> names = serverNames();
    int added = 0;
    int lines = 0;
    while (!f.atEnd()) {
        const QByteArray line = f.readLine(1 << 20);
        if (line.isEmpty() && f.error() != QFileDevice::NoError)
            break;   // read error: keep what was added
        for (const QString &e : splitEntries(line)) {
            const QString name = importName(e);
            if (name.isEmpty() || names.contains(name))
                continue;
            names.insert(name);
            lstServs->add(Unchecked + name);
            ++added;
        }
        if (++lines % 64 == 0)
            nd::yieldOnce();
    }
    return added;
}

void ServerList::menuImport()
{
    const QString path = sh.prompter().openFileName(QStringLiteral("Import server addresses"), nd::appDir(), TextFilter);
    if (path.isEmpty())
        return;
    sh.setBusy(true);
    emit viewHidden(true);
    importFile(path);
    emit viewHidden(false);
    refreshCaption();
    sh.setBusy(false);
}

void ServerList::menuExport()
{
    const QString path = sh.prompter().saveFileName(QStringLiteral("Export server addresses"), nd::appDir(), TextFilter);
    if (path.isEmpty())
        return;
    QSaveFile f(path);
    bool ok = f.open(QIODevice::WriteOnly);
    if (ok) {
        QByteArray out;
        for (int i = 0; i < lstServs->count(); ++i)
            out += lstServs->text(i).toUtf8() + "\r\n";
        ok = f.write(out) == out.size() && f.commit();
    }
    if (!ok) {
        sh.prompter().message(QStringLiteral("Error Saving File"), Prompter::NoIcon, Prompter::Ok);
        return;
    }
    sh.prompter().message(QStringLiteral("File Saved"), Prompter::NoIcon, Prompter::Ok);
}

// ------------------------------------------------------------------ open-server list

QString ServerList::openServerListUrl() const
{
    if (!m_url.isEmpty())
        return m_url;
    const QString env = qEnvironmentVariable("NEWSDREDGE_SERVERLIST_URL");
    return env.isEmpty() ? QString::fromLatin1(nd::UrlOpenServerList) : env;
}

bool ServerList::fetch(const QString &url, const QString &target, QString *reason)
{
    QFile::remove(target);
    if (!m_net)
        m_net = new QNetworkAccessManager(this);
    if (!sh.opt.ProxyHost.isEmpty())
        m_net->setProxy(QNetworkProxy(QNetworkProxy::Socks5Proxy, sh.opt.ProxyHost,
                                      quint16(sh.opt.ProxyPort > 0 ? sh.opt.ProxyPort : 1080)));
    else
        m_net->setProxy(QNetworkProxy(QNetworkProxy::NoProxy));

    QNetworkRequest req{QUrl(url)};
    req.setTransferTimeout(qMax(5, int(sh.opt.Timeout)) * 1000);
    req.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QPointer<QNetworkReply> reply = m_net->get(req);
    sh.S.StopRequested = false;
    nd::waitUntil([&] { return !reply || reply->isFinished() || sh.S.StopRequested; });
    if (!reply) {
        *reason = QStringLiteral("The download was cancelled.");
        return false;
    }
    reply->deleteLater();
    if (!reply->isFinished()) {
        reply->abort();
        *reason = QStringLiteral("Stopped.");
        return false;
    }
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError || (status != 0 && (status < 200 || status > 299))) {
        *reason = reply->errorString();
        return false;
    }
    QSaveFile f(target);
    if (!f.open(QIODevice::WriteOnly)) {
        *reason = f.errorString();
        return false;
    }
    const QByteArray body = reply->readAll();
    if (f.write(body) != body.size() || !f.commit()) {
        *reason = f.errorString();
        return false;
    }
    return true;
}

int ServerList::importOpenServerFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QStringList entries = splitEntries(f.readAll());
    QSet<QString> names = serverNames();
    int added = 0;
    for (const QString &e : entries) {
        const QString item = openServerItem(e);
        if (item.isEmpty())
            continue;
        const QString name = ItemList::serverNameOf(item);
        if (names.contains(name))
            continue;
        names.insert(name);
        lstServs->add(item);
        if (++added % 100 == 0) {
            refreshCaption();
            nd::yieldOnce();
        }
    }
    return added;
}

void ServerList::downloadOpenServers()
{
    const auto a = sh.prompter().message(
        QStringLiteral("Please note this process will add a list of \"open\" servers to your server list. \"open\" servers are often limited"),
        Prompter::Information, Prompter::OkCancel);
    if (a != Prompter::AnswerOk)
        return;
    const QString target = nd::appFile(QStringLiteral("openservers.tmp"));
    sh.setBusy(true);
    sh.setStatus(nd::PanelState, QStringLiteral("Downloading open server list"));
    QString reason;
    fetch(openServerListUrl(), target, &reason);
    sh.setBusy(false);
    sh.setStatus(nd::PanelState, QString());
    const QString support = QString::fromLatin1(nd::SupportAddress);
    if (!QFileInfo::exists(target)) {
        sh.prompter().message(QStringLiteral("The open server list could not be downloaded (%1).\nPlease contact support at %2.")
                                  .arg(reason.isEmpty() ? QStringLiteral("no answer") : reason, support),
                              Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    if (QFileInfo(target).size() < 2) {
        QFile::remove(target);
        sh.prompter().message(QStringLiteral("The open server list could not be imported.\nPlease contact support at %1.").arg(support),
                              Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    emit viewHidden(true);
    importOpenServerFile(target);
    QFile::remove(target);
    emit viewHidden(false);
    refreshCaption();
    sh.prompter().message(QStringLiteral("Done."), Prompter::Information, Prompter::Ok);
}
