#include "post/Poster.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "groups/FavoriteRules.h"
#include "groups/StopLatch.h"
#include "news/Session.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

namespace {
const QString Title = QStringLiteral("Newsdredge!");
const QString Busy = QStringLiteral("Please wait until current transaction is finished");
} // namespace

Poster::Poster(Shell &shell, NewsSession &newsSession, ItemList &groups, ItemList &favorites, QObject *parent)
    : QObject(parent), sh(shell), session(newsSession), lstGroups(groups), lstFavorites(favorites)
{
    sh.wireCommand(QStringLiteral("menuPostC"), [this] { OpenPost(CurrentGroup); });
    sh.wireCommand(QStringLiteral("menuPostG"), [this] { OpenPost(SelectedGroups); });
    sh.wireCommand(QStringLiteral("menuPostF"), [this] { OpenPost(SelectedFavorites); });
}

// ------------------------------------------------------------------ opening

bool Poster::CheckWindows(int scope)
{
    switch (scope) {
    case CurrentGroup: {
        const bool listing = !sh.S.CurrentGroup.isEmpty() && messageListingShown && messageListingShown();
        if (!listing || !sh.viewEnabled(nd::View::Messages)) {
            sh.prompter().message(QStringLiteral("Must Be in Message Listing to Use This Function"),
                                  Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        return true;
    }
    case SelectedGroups:
    case SelectedFavorites: {
        ItemList &list = scope == SelectedGroups ? lstGroups : lstFavorites;
        if (list.selectedCount() < 1) {
            sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        // each favourite connects to its own server
        const NewsTransport *t = session.transport();
        if (scope == SelectedFavorites && t && t->State() != NewsTransport::StateDisconnected) {
            sh.prompter().message(QStringLiteral("Please Disconnect First"), Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        return true;
    }
    default:
        return false;
    }
}

bool Poster::OpenPost(int scope)
{
    if (m_posting)
        return false;
    PostScope = scope;
    ReplyMode = 0;
    ReplyReferences.clear();
    ReplyInReplyTo.clear();
    if (!CheckWindows(scope)) {
        // an open window must not stay up with a scope that was refused
        emit windowRefused();
        return false;
    }
    emit windowWanted();
    return true;
}

bool Poster::Reply(const QString &sender, const QString &subject, const QString &messageId,
                   const QString &references, const QString &body)
{
    Q_UNUSED(sender);
    if (m_posting)
        return false;
    PostScope = CurrentGroup;
    if (!CheckWindows(PostScope)) {
        emit windowRefused();
        return false;
    }
    ReplyMode = 1;
    ReplyReferences = PostArticle::replyReferences(references, messageId);
    ReplyInReplyTo = messageId.trimmed();
    const QString signature = sh.store().get(QStringLiteral("Signature"));
    // the text box keeps plain line ends; the article gets CR LF when it is built
    QString text = PostArticle::replyText(signature, body);
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    emit replyWanted(PostArticle::replySubject(subject), text);
    return true;
}

// ------------------------------------------------------------------ checks of OK

bool Poster::readyToPost()
{
    if (!session.transactionRunning() && !sh.S.DownloadBusy)
        return true;
    // one transaction at a time: the listing or download that runs now finishes first
    sh.setStatus(nd::PanelDetail, Busy);
    emit statusChanged(2, Busy);
    return false;
}

bool Poster::fieldsComplete(const QString &name, const QString &email, const QString &subject)
{
    if (!name.trimmed().isEmpty() && !email.trimmed().isEmpty() && !subject.trimmed().isEmpty())
        return true;
    sh.prompter().message(QStringLiteral("Please enter name, email and subject."), Prompter::Critical);
    return false;
}

bool Poster::emailLooksValid(const QString &email)
{
    if (PostArticle::looksLikeEmail(email))
        return true;
    sh.prompter().message(QStringLiteral("Invalid Email Address!"), Prompter::Exclamation, Prompter::Ok, Title);
    return false;
}

// ------------------------------------------------------------------ the run

ItemList *Poster::targetList() const
{
    if (PostScope == CurrentGroup || ReplyMode == 1)
        return nullptr;
    return PostScope == SelectedGroups ? &lstGroups : &lstFavorites;
}

QList<Poster::Target> Poster::targets() const
{
    QList<Target> out;
    ItemList *list = targetList();
    if (!list) {
        out << Target{-1, sh.S.CurrentGroup.trimmed(), sh.opt.NNTPServer};
        return out;
    }
    for (int i = 0; i < list->count(); ++i) {
        if (!list->isSelected(i))
            continue;
        const QString item = list->text(i);
        // a group of the group list goes to the current server, a favourite to its own
        out << Target{i, FavoriteRules::CleanNewsGroup(item),
                      list == &lstGroups ? sh.opt.NNTPServer : FavoriteRules::GetServerName(item)};
    }
    return out;
}

void Poster::logLine(const QString &line)
{
    if (!PostArticle::appendLog(nd::appFile(QStringLiteral("POST.LOG")), line))
        sh.setStatus(nd::PanelDetail, QStringLiteral("Unable to write POST.LOG"));
}

bool Poster::connectTo(const QString &server)
{
    NewsTransport *t = session.transport();
    if (!t || t->Host() != server || !session.isConnected()) {
        session.NNTP_Disconnect();
        sh.opt.NNTPServer = server;
        session.NNTP_Connect(false);
    }
    t = session.transport();
    return t && t->Host() == server && session.isConnected();
}

void Poster::reportFailure(const QString &server, const QString &subject)
{
    emit statusChanged(1, QStringLiteral("Unable to Post"));
    emit statusChanged(2, QStringLiteral("Could not post to ") + server);
    logLine(PostArticle::failureLine(QDateTime::currentDateTime(), server, subject));
}

void Poster::cmdPostMessage(const PostArticle::Fields &fields)
{
    if (fields.subject.trimmed().isEmpty()) {
        sh.prompter().message(QStringLiteral("Please enter subject."), Prompter::Critical);
        return;
    }
    const QList<Target> all = targets();
    // the list may be refilled by a reconnect; deselect by text, not by position
    ItemList *list = targetList();
    QStringList itemTexts;
    for (const Target &t : all)
        itemTexts << (list ? list->text(t.index) : QString());

    m_posting = true;
    sh.S.StopRequested = false;
    emit runStarted();
    PostArticle::Fields f = fields;
    f.references = ReplyMode == 1 ? ReplyReferences : QString();
    f.inReplyTo = ReplyMode == 1 ? ReplyInReplyTo : QString();

    const StopLatch stop(sh);
    for (int k = 0; k < all.size() && !stop.stopped(); ++k) {
        const Target &tg = all[k];
        if (tg.group.isEmpty() || tg.server.isEmpty())
            continue;
        if (!postTo(tg, itemTexts[k], f))
            break;
    }

    emit statusChanged(1, QStringLiteral("Finished Posting"));
    m_posting = false;
    emit runFinished();
}

bool Poster::postTo(const Target &tg, const QString &itemText, PostArticle::Fields &f)
{
    if (!connectTo(tg.server)) {
        reportFailure(tg.server, f.subject);
        return true;
    }
    emit statusChanged(1, QStringLiteral("Attempting to Post"));
    emit statusChanged(2, QString());
    f.group = tg.group;
    NewsTransportArticle article;
    for (const auto &h : PostArticle::headers(f))
        article.Message.Headers << NewsTransportHeader{h.first, h.second};
    article.Message.MIMEVersion = QStringLiteral("1.0");
    article.Message.ContentType = QStringLiteral("text");
    article.Message.Body = PostArticle::body(f.body);
    article.Message.Raw = PostArticle::build(f);
    emit statusChanged(1, QStringLiteral("Sending Message"));
    const TransactionResult r = session.runTransaction([&article](NewsTransport *t) { t->Post(article); });
    if (r.ok() && session.isConnected()) {
        if (ItemList *list = targetList()) {
            const int i = list->find(itemText);
            if (i >= 0)
                list->setSelected(i, false);
        }
        emit statusChanged(1, QStringLiteral("Posted Message"));
        emit statusChanged(2, QStringLiteral("Posted:") + tg.server + QStringLiteral(" (") + tg.group + QStringLiteral(")"));
        logLine(PostArticle::successLine(QDateTime::currentDateTime(), tg.server, tg.group, f.subject));
    } else {
        reportFailure(tg.server, f.subject);
    }
    // over the download limit nothing more goes
    const NewsTransport *t = session.transport();
    return r.ok() || !(t && t->LimitExceeded());
}

void Poster::cancelRun()
{
    if (!m_posting)
        return;
    sh.S.StopRequested = true;
    if (sh.abortTransaction)
        sh.abortTransaction();
}
