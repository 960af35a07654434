// Posting through the post window to a real INN server on loopback.
#include "app/Paths.h"
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "groups/FavoriteRules.h"
#include "news/Session.h"
#include "post/NntpProbe.h"
#include "post/PostArticle.h"
#include "post/Poster.h"
#include "gui/post/PostWindows.h"
#include "support/InnEnv.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUuid>
#include <QtTest>

namespace {

const QString Connected = QStringLiteral("Connected to NNTP Server");

struct Window {
    ScriptedPrompter p;
    frmMain w{&p, frmMain::Options{true}};
    explicit Window(int port = inn::portOpen())
    {
        w.opt.Timeout = 15;
        w.opt.NNTPServer = inn::server(port);
        w.session->serverData = [](const QString &s) {
            return s == inn::server(inn::portAuth()) ? inn::authUser() + QStringLiteral("|||") + inn::authPassword()
                                                     : QString();
        };
        w.session->NNTP_Connect(false);
    }
    frmPostMsg *fill(const QString &subject, const QString &text, const QString &sig = QString())
    {
        frmPostMsg *pw = w.postWindows->window();
        pw->txtName->setText(QStringLiteral("Ann Tester"));
        pw->txtEmail->setText(QStringLiteral("ann@newsdredge.test"));
        pw->txtSubject->setText(subject);
        pw->txtMessage->setPlainText(text);
        pw->txtSig->setPlainText(sig);
        return pw;
    }
};

QString unique(const QString &what)
{
    return what + QLatin1Char(' ') + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
}

// The post log's lines (their CR LF ends are checked with the log writer).
QStringList logLines()
{
    return testfile::lines(nd::appFile(QStringLiteral("POST.LOG")));
}

// The post log when its lines do not end as given (each starts with the time), else nothing.
QString logMismatch(const QStringList &ends)
{
    const QStringList log = logLines();
    bool ok = log.size() == ends.size();
    for (qsizetype i = 0; ok && i < log.size(); ++i)
        ok = log[i].endsWith(ends[i]);
    return ok ? QString() : log.join(QLatin1Char('\n'));
}

QByteArray fetch(int port, const QString &group, const QString &subject)
{
    NntpProbe r(port);
    if (!r.ok())
        return {};
    const QList<qint64> n = r.findBySubject(group.toUtf8(), subject.toUtf8());
    return n.size() == 1 ? r.article(n.first()) : QByteArray();
}

} // namespace

class TstPostInn : public QObject {
    Q_OBJECT
private slots:
    void init() { QFile::remove(nd::appFile(QStringLiteral("POST.LOG"))); }

    void threeSelectedGroupsGetTheArticleExactly()
    {
        Window x;
        QCOMPARE(x.w.session->transport()->StateText(), Connected);
        const QStringList groups = {"alt.test.newsdredge", "alt.newsdredge.text", "comp.lang.newsdredge"};
        x.w.lstGroups->addMany({ItemList::marked('1', "alt.test.newsdredge (4)"), "misc.test.empty (0)",
                                "alt.newsdredge.text (0)", ItemList::marked('1', "comp.lang.newsdredge (2)")});
        for (int i : {0, 2, 3})
            x.w.lstGroups->setSelected(i, true);
        x.w.MenuOnOff(nd::Scope::SelectedGroups, true);   // as a loaded group list leaves it
        QVERIFY(x.w.action("menuPostG")->isEnabled());
        x.w.action("menuPostG")->trigger();
        frmPostMsg *pw = x.w.postWindows->window();
        QVERIFY(pw && pw->isVisible());
        QCOMPARE(x.w.poster->PostScope, int(Poster::SelectedGroups));

        const QString subject = unique(QStringLiteral("Three groups"));
        const QString longLine = QString(1500, QLatin1Char('L'));
        const QString text = QStringLiteral("Hello groups\n.a line starting with a dot\n..two dots\n.\n"
                                            "Gr\u00fc\u00dfe \u20ac 100\n") + longLine;
        x.fill(subject, text, QStringLiteral("-- \nAnn"));
        pw->cmdOK->click();

        // the signature went into the box, and the run ended
        QCOMPARE(pw->txtMessage->toPlainText(), text + QStringLiteral("\n-- \nAnn"));
        QCOMPARE(pw->status(1), QStringLiteral("Finished Posting"));
        QCOMPARE(pw->cmdCancel->text(), QStringLiteral("&Close"));
        QCOMPARE(x.w.lstGroups->selectedCount(), 0);

        QStringList posted;
        for (const QString &g : groups)
            posted << QStringLiteral(" - Posted:%1 (%2) %3").arg(x.w.opt.NNTPServer, g, subject);
        QCOMPARE(logMismatch(posted), QString());

        const QByteArray sentBody = PostArticle::body(text + QStringLiteral("\n-- \nAnn"));
        for (const QString &g : groups) {
            const QByteArray a = fetch(inn::portOpen(), g, subject);
            QVERIFY2(!a.isEmpty(), qPrintable(g));
            QCOMPARE(NntpProbe::bodyOf(a), sentBody);
            // our headers, with these values, keep their order among those the server added
            const QList<QPair<QByteArray, QByteArray>> want = {
                {"From", "Ann Tester <ann@newsdredge.test>"}, {"Newsgroups", g.toUtf8()}, {"Subject", subject.toUtf8()},
                {"Organization", "Newsdredge! 3.8"}, {"MIME-Version", "1.0"}, {"Content-Type", "text/plain; charset=UTF-8"},
                {"Content-Transfer-Encoding", "8bit"}};
            QList<QPair<QByteArray, QByteArray>> ours;
            for (const auto &h : NntpProbe::headersOf(a))
                if (std::any_of(want.begin(), want.end(), [&](const auto &w) { return w.first == h.first; }))
                    ours << h;
            QCOMPARE(ours, want);
        }
        // pressing OK again appends the signature once more
        pw->cmdOK->setEnabled(true);
        x.w.lstGroups->setSelected(1, true);
        pw->txtSubject->setText(unique(QStringLiteral("Again")));
        pw->cmdOK->click();
        QVERIFY(pw->txtMessage->toPlainText().endsWith(QStringLiteral("Ann\n-- \nAnn")));
    }

    void refusedPostIsLoggedAndTheRunGoesOn()
    {
        Window x;
        x.w.lstGroups->addMany({"alt.not.carried.here (0)", "misc.test.empty (0)"});
        x.w.lstGroups->selectAll();
        x.w.MenuOnOff(nd::Scope::SelectedGroups, true);
        x.w.action("menuPostG")->trigger();
        const QString subject = unique(QStringLiteral("Refused"));
        x.fill(subject, QStringLiteral("body"));
        x.w.postWindows->window()->cmdOK->click();
        QCOMPARE(logMismatch({QStringLiteral(" - Unable to Post to %1 %2").arg(x.w.opt.NNTPServer, subject),
                              QStringLiteral(" - Posted:%1 (misc.test.empty) %2").arg(x.w.opt.NNTPServer, subject)}), QString());
        // the refused item stays selected, the posted one does not
        QVERIFY(x.w.lstGroups->isSelected(0));
        QVERIFY(!x.w.lstGroups->isSelected(1));
        QVERIFY(!fetch(inn::portOpen(), "misc.test.empty", subject).isEmpty());
        // the server's refusal was shown
        QVERIFY(!x.p.asked.isEmpty());
    }

    void readerWithoutPostingPermission()
    {
        Window x(inn::portNoPost());
        QCOMPARE(x.w.session->transport()->StateText(), Connected);
        QVERIFY(!x.w.S.PostingAllowed);
        x.w.S.CurrentGroup = QStringLiteral("alt.test.newsdredge");
        x.w.UpdateCaption(nd::Caption::Messages);
        QVERIFY(x.w.poster->OpenPost(Poster::CurrentGroup));
        const QString subject = unique(QStringLiteral("No permission"));
        x.fill(subject, QStringLiteral("body"));
        x.w.postWindows->window()->cmdOK->click();
        QCOMPARE(logMismatch({QStringLiteral(" - Unable to Post to %1 %2").arg(inn::server(inn::portNoPost()), subject)}), QString());
        QCOMPARE(x.w.postWindows->window()->status(1), QStringLiteral("Finished Posting"));
        QVERIFY(fetch(inn::portOpen(), "alt.test.newsdredge", subject).isEmpty());
    }

    void favoritesOnTwoServersReconnectBetweenThem()
    {
        Window x;
        const QString a = inn::server(inn::portOpen());
        const QString b = inn::server(inn::portAuth());
        x.w.lstFavorites->addMany({ItemList::marked('1', QStringLiteral("alt.test.newsdredge (%1) (3)").arg(a)),
                                   QStringLiteral("alt.newsdredge.text (%1)").arg(b),
                                   QStringLiteral("misc.test.empty (%1)").arg(a)});
        x.w.lstFavorites->setSelected(0, true);
        x.w.lstFavorites->setSelected(1, true);
        // connected: refused, each favourite needs its own session
        QVERIFY(!x.w.poster->OpenPost(Poster::SelectedFavorites));
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Please Disconnect First")});
        QCOMPARE(x.p.asked[0].icon, Prompter::Exclamation);
        QVERIFY(!x.w.postWindows->window());
        x.w.session->NNTP_Disconnect();

        x.w.action("menuPostF")->trigger();
        QVERIFY(x.w.postWindows->window());
        const QString subject = unique(QStringLiteral("Two servers"));
        x.fill(subject, QStringLiteral("favourites"));
        x.w.postWindows->window()->cmdOK->click();
        QCOMPARE(logMismatch({QStringLiteral(" - Posted:%1 (alt.test.newsdredge) %2").arg(a, subject),
                              QStringLiteral(" - Posted:%1 (alt.newsdredge.text) %2").arg(b, subject)}), QString());
        // the second favourite made its server current and logged in there
        QCOMPARE(x.w.opt.NNTPServer, b);
        QCOMPARE(x.w.session->transport()->Host(), b);
        QCOMPARE(x.w.S.ServerUserId, inn::authUser());
        QVERIFY(!fetch(inn::portOpen(), "alt.newsdredge.text", subject).isEmpty());
        QCOMPARE(x.w.lstFavorites->selectedCount(), 0);
    }

    void replyQuotesAndThreads()
    {
        Window x;
        // an original to reply to
        const QString tag = unique(QStringLiteral("Original"));
        const QString origSubject = QStringLiteral("Gr\u00fc\u00dfe ") + tag;
        const QString msgId = QStringLiteral("<%1@x.test>").arg(QString(tag).replace(' ', '.'));
        QVERIFY(!inn::post("From: o@x.test\r\nNewsgroups: alt.test.newsdredge\r\nSubject: " + tag.toUtf8()
                           + "\r\nMessage-ID: " + msgId.toUtf8() + "\r\n\r\nhi\r\n").isEmpty());

        // outside a message listing a reply is refused
        QVERIFY(!x.w.poster->Reply("o@x.test", origSubject, msgId, QString(), QStringLiteral("hi")));
        QVERIFY(x.p.wasAsked(QStringLiteral("Must Be in Message Listing to Use This Function")));
        QVERIFY(!x.w.postWindows->window());

        x.w.S.CurrentGroup = QStringLiteral("alt.test.newsdredge");
        x.w.UpdateCaption(nd::Caption::Messages);
        x.w.store().save(QStringLiteral("Signature"), QStringLiteral("Ann's sig"));
        const QString body = QString(60, QLatin1Char('a')) + QString(60, QLatin1Char('b')) + QString(130, QLatin1Char('c'));
        QVERIFY(x.w.poster->Reply("o@x.test", origSubject, msgId, QStringLiteral("<older@x.test>"), body));
        frmPostMsg *pw = x.w.postWindows->window();
        QVERIFY(pw->isVisible());
        QCOMPARE(pw->windowModality(), Qt::ApplicationModal);
        QVERIFY(x.w.poster->replyMode());
        QCOMPARE(pw->txtSubject->text(), QStringLiteral("Re : ") + origSubject);
        const QString quoted = QString(60, QLatin1Char('a')) + QString(40, QLatin1Char('b'));
        QCOMPARE(pw->txtMessage->toPlainText(),
                 QStringLiteral("\n\nAnn's sig\n") + QString(40, QLatin1Char('-')) + QStringLiteral("\n") + quoted);
        pw->txtName->setText(QStringLiteral("J\u00fcrgen R\u00e9ply"));
        pw->txtEmail->setText(QStringLiteral("j@x.test"));
        pw->txtSig->clear();
        pw->cmdOK->click();
        QCOMPARE(logLines().size(), 1);

        // the non-ASCII subject went out as RFC 2047 words
        const QString encoded = PostArticle::encodeHeaderText(QStringLiteral("Re : ") + origSubject);
        QVERIFY(encoded.startsWith(QStringLiteral("=?UTF-8?B?")));
        const QByteArray a = fetch(inn::portOpen(), "alt.test.newsdredge", encoded);
        QVERIFY(!a.isEmpty());
        QCOMPARE(NntpProbe::header(a, "References"), "<older@x.test> " + msgId.toUtf8());
        QCOMPARE(NntpProbe::header(a, "In-Reply-To"), msgId.toUtf8());
        QCOMPARE(NntpProbe::header(a, "From"), PostArticle::fromHeader(QStringLiteral("J\u00fcrgen R\u00e9ply"), "j@x.test").toUtf8());
        QVERIFY(NntpProbe::bodyOf(a).endsWith(quoted.toUtf8() + "\r\n"));
        pw->close();
        QVERIFY(!x.w.poster->replyMode());
    }
};

QTEST_MAIN(TstPostInn)
#include "tst_post_inn.moc"
