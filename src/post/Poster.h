#pragma once
#include "post/PostArticle.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

class ItemList;
class NewsSession;
class Shell;

// Posting: the Post commands and replies (which open the post window when their check passes),
// and the posting run over the window's fields: the checks, one article per target group built
// by PostArticle, posted through the session, a POST.LOG line for every attempt and the status
// texts the post window shows.
class Poster : public QObject {
    Q_OBJECT
public:
    // Where the article goes.
    enum Scope { SelectedGroups = 0, SelectedFavorites = 1, CurrentGroup = 2 };

    Poster(Shell &sh, NewsSession &session, ItemList &lstGroups, ItemList &lstFavorites, QObject *parent = nullptr);

    // Whether the main window shows a message listing (its group caption); set by the window.
    std::function<bool()> messageListingShown;

    // menuPostC (2), menuPostG (0), menuPostF (1). True when the post window is shown.
    bool OpenPost(int scope);

    // Reply from the message viewer: sender, subject, Message-ID and References of the viewed
    // message, and its text. Shows the post window (modal) with "Re : " + subject and the
    // signature, the 40-dash line and the first 100 characters of the text; the reply goes to
    // the current group and threads under the message. False when no reply may be written now
    // ("Must Be in Message Listing to Use This Function").
    bool Reply(const QString &sender, const QString &subject, const QString &messageId,
               const QString &references, const QString &body);

    // What the post window composes.
    int PostScope = CurrentGroup;
    int ReplyMode = 0;                // 1 while a reply is composed
    QString ReplyReferences;          // References and In-Reply-To of a reply
    QString ReplyInReplyTo;
    bool replyMode() const { return ReplyMode == 1; }
    // The post window went: the next one composes a new article.
    void windowClosed() { ReplyMode = 0; }

    // Whether the post window may open for a scope; shows why not.
    bool CheckWindows(int scope);

    // The checks of OK, each showing why it fails: no other transaction runs; name, e-mail
    // and subject are given; the e-mail address looks like one (Enter on OK).
    bool readyToPost();
    bool fieldsComplete(const QString &name, const QString &email, const QString &subject);
    bool emailLooksValid(const QString &email);

    // The posting run over PostScope (or the current group for a reply) with name, e-mail,
    // subject and body of `fields`.
    void cmdPostMessage(const PostArticle::Fields &fields);
    bool posting() const { return m_posting; }
    // Ends a running run at its next step (the post window closes meanwhile).
    void cancelRun();

signals:
    // Open the post window for PostScope and show it.
    void windowWanted();
    // Open the post window with a reply's subject and text, modal.
    void replyWanted(const QString &subject, const QString &text);
    // A Post command or a reply was refused: an open post window closes.
    void windowRefused();
    // The post window's status panels 1 and 2.
    void statusChanged(int panel, const QString &text);
    void runStarted();
    void runFinished();

private:
    struct Target {
        int index;          // item of the chosen list; -1 for the current group
        QString group;
        QString server;
    };
    ItemList *targetList() const;
    QList<Target> targets() const;
    bool connectTo(const QString &server);
    // One article to one group; false when the run ends here (the download limit).
    bool postTo(const Target &target, const QString &itemText, PostArticle::Fields &f);
    void reportFailure(const QString &server, const QString &subject);
    void logLine(const QString &line);

    Shell &sh;
    NewsSession &session;
    ItemList &lstGroups;
    ItemList &lstFavorites;
    bool m_posting = false;
};
