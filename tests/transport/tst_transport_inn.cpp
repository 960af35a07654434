// The NNTP client against a real INN server on loopback.
#include "news/transport/NewsTransport.h"
#include "support/InnEnv.h"

#include <QEventLoop>
#include <QUuid>
#include <QtTest>

namespace {

struct Probe {
    NewsTransport t;
    bool done = false, error = false, connected = false, disconnected = false;
    QStringList debug;
    Probe()
    {
        t.SetTimeout(10);
        QObject::connect(&t, &NewsTransport::Done, [this](NewsTransport *, qint32, bool e, const QString &) { done = true; error = e; });
        QObject::connect(&t, &NewsTransport::Connected, [this](NewsTransport *) { connected = true; });
        QObject::connect(&t, &NewsTransport::Disconnected, [this](NewsTransport *) { disconnected = true; });
        QObject::connect(&t, &NewsTransport::Debug, [this](NewsTransport *, const QString &l) { debug << l; });
    }
    bool run(const std::function<void()> &op)
    {
        done = error = false;
        op();
        QElapsedTimer timer;
        timer.start();
        while (!done && timer.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 200);
        return done && !error;
    }
    bool connect(int port, const QString &user = QString(), const QString &pw = QString())
    {
        connected = false;
        t.SetHost(inn::server(port));
        t.Connect(inn::server(port), user, pw);
        QElapsedTimer timer;
        timer.start();
        while (!connected && !error && t.LastError() == 0 && timer.elapsed() < 20000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 200);
        return t.StateText() == QLatin1String("Connected to NNTP Server");
    }
};

QByteArray uniqueArticle(const QString &group, const QString &subject, const QByteArray &body)
{
    return "From: Newsdredge Test <test@example.org>\r\nNewsgroups: " + group.toUtf8() + "\r\nSubject: " + subject.toUtf8()
        + "\r\n\r\n" + body;
}

} // namespace

class TstTransportInn : public QObject {
    Q_OBJECT
private slots:
    void greetingAndPostingPermission()
    {
        Probe open;
        QVERIFY(open.connect(inn::portOpen()));
        QVERIFY(open.t.PostingAllowed());
        QVERIFY(open.debug.first().startsWith(QStringLiteral("200 ")));
        Probe ro;
        QVERIFY(ro.connect(inn::portNoPost()));
        QVERIFY(!ro.t.PostingAllowed());
        QVERIFY(ro.debug.first().startsWith(QStringLiteral("201 ")));
    }

    void authinfo()
    {
        Probe ok;
        QVERIFY(ok.connect(inn::portAuth(), inn::authUser(), inn::authPassword()));
        QVERIFY(ok.run([&] { ok.t.SelectGroup(QStringLiteral("alt.test.newsdredge")); }));
        Probe bad;
        QVERIFY(!bad.connect(inn::portAuth(), inn::authUser(), QStringLiteral("wrong")));
        QVERIFY(bad.t.LastError() != 0);
        QCOMPARE(bad.t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
        QVERIFY(bad.debug.last().startsWith(QStringLiteral("481")));
        // the password never shows in the conversation
        for (const QString &l : bad.debug + ok.debug)
            QVERIFY(!l.contains(QStringLiteral("s3cret")));
    }

    void postListSelectOverArticleQuit()
    {
        Probe p;
        QVERIFY(p.connect(inn::portOpen()));
        const QString group = QStringLiteral("alt.newsdredge.text");
        const QString subject = QStringLiteral("transport check ") + QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QByteArray body = ".a line starting with a dot\r\n..two dots\r\nUmlaut \xc3\xa4 and a long line " + QByteArray(1500, 'x') + "\r\nlast\r\n";
        NewsTransportArticle art;
        art.Message.Raw = uniqueArticle(group, subject, body);
        QVERIFY(p.run([&] { p.t.Post(art); }));

        QVERIFY(p.run([&] { p.t.RequestGroupList(); }));
        bool found = false;
        for (int i = 0; i < p.t.GroupList().Count(); ++i)
            if (p.t.GroupList().Item(i).Name == group) {
                found = true;
                QVERIFY(p.t.GroupList().Item(i).Last >= 1);
            }
        QVERIFY(found);

        QVERIFY(p.run([&] { p.t.SelectGroup(group); }));
        const qint64 last = p.t.SelectedGroup().Last;
        QVERIFY(last >= 1);
        QVERIFY(p.run([&] { p.t.FetchHeaders(p.t.SelectedGroup().First, last); }));
        const NewsTransportArticle *mine = nullptr;
        for (const NewsTransportArticle &a : p.t.SelectedGroup().Articles)
            if (a.Message.header(QStringLiteral("Subject")) == subject)
                mine = &a;
        QVERIFY(mine);
        QCOMPARE(mine->Message.header(QStringLiteral("From")), QStringLiteral("Newsdredge Test <test@example.org>"));
        QVERIFY(mine->Message.header(QStringLiteral("Path")).contains(QStringLiteral("news.newsdredge.test")));
        QVERIFY(mine->Message.header(QStringLiteral("Message-ID")).startsWith(QLatin1Char('<')));
        const qint64 number = mine->Number;

        QVERIFY(p.run([&] { p.t.FetchArticles(number, number); }));
        QCOMPARE(p.t.SelectedGroup().Count(), 1);
        const NewsTransportMessage &m = p.t.SelectedGroup().Item(0).Message;
        QCOMPARE(m.Body, body);   // byte for byte, dots restored
        QCOMPARE(m.header(QStringLiteral("Subject")), subject);
        QVERIFY(m.MIMEVersion.isEmpty());
        QVERIFY(m.Raw.endsWith(body));

        // an article number that does not exist is no error, just nothing
        QVERIFY(p.run([&] { p.t.FetchArticles(last + 1000, last + 1000); }));
        QCOMPARE(p.t.SelectedGroup().Count(), 0);

        p.t.Disconnect();
        QTRY_VERIFY(p.disconnected);
        QCOMPARE(p.t.StateText(), QStringLiteral("Disconnected from NNTP Server"));
        QCOMPARE(p.debug.last(), QStringLiteral("205 Bye!"));
    }

    void refusedPostIsAnError()
    {
        Probe p;
        QVERIFY(p.connect(inn::portNoPost()));
        NewsTransportArticle art;
        art.Message.Raw = uniqueArticle(QStringLiteral("alt.newsdredge.text"), QStringLiteral("refused"), "x\r\n");
        QVERIFY(!p.run([&] { p.t.Post(art); }));
        QVERIFY(p.debug.last().startsWith(QStringLiteral("440")));
        // the session goes on
        QVERIFY(p.run([&] { p.t.SelectGroup(QStringLiteral("alt.newsdredge.text")); }));
    }
};

QTEST_GUILESS_MAIN(TstTransportInn)
#include "tst_transport_inn.moc"
