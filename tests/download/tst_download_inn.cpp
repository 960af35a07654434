// End to end: posts made by real tools on a private INN server, downloaded through the
// program's own commands on a window that is never shown, compared byte for byte.
#include "InnPosts.h"

#include "app/Wait.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "news/transport/NewsTransport.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QDateTime>
#include <QItemSelectionModel>
#include <QTableView>
#include <QTimer>
#include <QtTest>

namespace {

const QString Suffix = QString::number(QDateTime::currentMSecsSinceEpoch() % 100000000);
const QString GroupA = QStringLiteral("alt.binaries.newsdredge.dl") + Suffix;
const QString GroupB = QStringLiteral("alt.binaries.newsdredge.dlcancel") + Suffix;

struct Original {
    QString name;
    QByteArray bytes;
};

// A single-part yEnc article written by hand (for names and checksums no tool would write).
QByteArray yencArticle(const QString &group, const QString &subject, const QByteArray &name, const QByteArray &data,
                       const QByteArray &yendExtra)
{
    const QByteArray size = QByteArray::number(data.size());
    return "From: Hand <hand@example.org>\r\nNewsgroups: " + group.toUtf8() + "\r\nSubject: " + subject.toUtf8()
           + "\r\n\r\n=ybegin line=128 size=" + size + " name=" + name + "\r\n" + testutil::yencLines(data)
           + "=yend size=" + size + yendExtra + "\r\n";
}

} // namespace

class TestDownloadInn : public QObject {
    Q_OBJECT
    QTemporaryDir m_src;
    QList<Original> m_files;    // everything posted to group A that must come back

    struct Win {
        ScriptedPrompter p;
        frmMain w{&p, frmMain::Options{true}};
        QTemporaryDir dest;
        Win()
        {
            w.opt.NNTPServer = inn::server(inn::portOpen());
            w.opt.Timeout = 20;
            w.opt.DestDir = dest.path() + QLatin1Char('/');
        }
        QStringList destFiles() const { return QDir(dest.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name); }
    };

    // The program's own listing, as a double-click on the group gives it: newest first, from the server.
    static bool listByProgram(Win &x, const QString &group)
    {
        NewsSession *s = x.w.session;
        if (!s->transport() || s->transport()->StateText() != QLatin1String("Connected to NNTP Server"))
            s->NNTP_Connect(false);
        x.w.opt.NewMsgs = 0;
        x.w.S.CurrentGroup = group;
        x.w.messages->ListMessages(false);
        return x.w.S.TransportError == 0 && x.w.grid->lastMessageRow() > 0;
    }

    // The right mouse button on the grid downloads the selected rows.
    static void rightClick(Win &x)
    {
        QTest::mouseClick(x.w.MSHResults->viewport(), Qt::RightButton, {}, QPoint(5, 5));
    }

    static int rowOf(Win &x, const QString &subjectPart)
    {
        for (int r = 1; r <= x.w.grid->lastMessageRow(); ++r)
            if (x.w.grid->cell(r, 2).contains(subjectPart))
                return r;
        return 0;
    }

    static void select(Win &x, const QList<int> &rows)
    {
        QItemSelectionModel *sel = x.w.MSHResults->selectionModel();
        sel->clearSelection();
        for (int r : rows)
            sel->select(x.w.grid->index(r - 1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    // Download (menu) of the row whose subject holds subjectPart.
    static void downloadRow(Win &x, const QString &subjectPart)
    {
        select(x, {rowOf(x, subjectPart)});
        x.w.action(QStringLiteral("menuDownload"))->trigger();
    }

    void compareAll(Win &x, const QList<Original> &expected)
    {
        for (const Original &o : expected) {
            const QString path = x.dest.path() + QLatin1Char('/') + o.name;
            QVERIFY2(QFileInfo::exists(path), qPrintable(o.name + " was not saved; files: " + x.destFiles().join(", ")));
            QVERIFY2(posts::readFile(path) == o.bytes, qPrintable(o.name + " differs from the original"));
            QVERIFY2(x.w.lstFiles->find(o.name) >= 0, qPrintable(o.name + " is not in the saved-files list"));
        }
    }

private slots:
    void initTestCase();
    void selectedRowsThenDuplicates();
    void downloadAllOfAGroup();
    void articleNumbersOfTheCurrentGroup();
    void stopLeavesNothingBehind();
    void cancelledPart();
    void hostileNameAndBadChecksum();
};

void TestDownloadInn::initTestCase()
{
    QString missing;
    if (!posts::toolsPresent(&missing))
        QSKIP(qPrintable("posting tool missing: " + missing));
    QVERIFY(m_src.isValid());
    QVERIFY(posts::newGroup(GroupA));
    QVERIFY(posts::newGroup(GroupB));
    const QString d = m_src.path() + QLatin1Char('/');
    // a file to post to group A, kept to compare with what comes back
    auto original = [&](const QString &name, const QByteArray &bytes) {
        m_files.append({name, bytes});
        return posts::writeFile(d + name, bytes);
    };

    // a yEnc post of 44 parts, part numbers without leading zeros
    QVERIFY(original("big.bin", posts::randomBytes(44 * 16384 - 100, 1)));
    QVERIFY(posts::nyuu(d + "big.bin", GroupA, QStringLiteral("16K")));
    // a uuencoded file in 12 articles posted with inews
    QVERIFY(original("uu.bin", posts::randomBytes(30000, 2)));
    QVERIFY(posts::uuencodeSplit(d + "uu.bin", GroupA, QStringLiteral("Holiday pictures uu.bin"), 12));
    // a MIME base64 attachment by mpack
    QVERIFY(original("photo.jpg", posts::randomBytes(20000, 3)));
    QVERIFY(posts::mpack(d + "photo.jpg", GroupA, QStringLiteral("Photo for you")));
    // a single-part picture
    QVERIFY(original("pic.png", posts::picture()));
    QVERIFY(posts::nyuu(d + "pic.png", GroupA, QStringLiteral("700K")));
    // a text message without attachment
    QVERIFY(posts::inews("From: Talker <t@example.org>\nNewsgroups: " + GroupA.toUtf8()
                             + "\nSubject: Just talking\n\nNothing attached here.\n", m_src.path()));

    // group B: a set whose third part is cancelled after posting
    QVERIFY(posts::writeFile(d + "gone.bin", posts::randomBytes(6 * 16000, 4)));
    QVERIFY(posts::nyuu(d + "gone.bin", GroupB, QStringLiteral("16K")));
}

void TestDownloadInn::selectedRowsThenDuplicates()
{
    Win x;
    QVERIFY(listByProgram(x, GroupA));
    const int uu = rowOf(x, QStringLiteral("uu.bin (07/12)"));
    const int photo = rowOf(x, QStringLiteral("Photo for you"));
    const int pic = rowOf(x, QStringLiteral("\"pic.png\""));
    const int text = rowOf(x, QStringLiteral("Just talking"));
    QVERIFY(uu && photo && pic && text);
    select(x, {uu, photo, pic, text});
    rightClick(x);

    compareAll(x, {m_files[1], m_files[2], m_files[3]});
    QCOMPARE(x.destFiles(), (QStringList{"photo.jpg", "pic.png", "uu.bin"}));
    QCOMPARE(x.w.status(1), QStringLiteral("Finished Downloading"));
    QCOMPARE(x.w.status(3), QStringLiteral("Connected"));
    QVERIFY(!x.w.S.DownloadBusy);
    QVERIFY(x.p.asked.isEmpty());
    // all twelve parts were taken by the search
    int marked = 0;
    for (int r = 1; r <= x.w.grid->lastMessageRow(); ++r)
        marked += x.w.grid->cell(r, 8) == QLatin1String("256") && x.w.grid->cell(r, 2).contains(QLatin1String("uu.bin"));
    QCOMPARE(marked, 12);

    // listed afresh, the files exist: "Duplicate File", nothing overwritten, nothing added
    const QDateTime before = QFileInfo(x.dest.path() + "/uu.bin").lastModified();
    QTest::qWait(1100);
    QVERIFY(listByProgram(x, GroupA));
    for (const QString &s : {QStringLiteral("uu.bin (03/12)"), QStringLiteral("Photo for you"), QStringLiteral("\"pic.png\"")}) {
        select(x, {rowOf(x, s)});
        rightClick(x);
        QCOMPARE(x.w.status(2), QStringLiteral("Duplicate File"));
    }
    QCOMPARE(QFileInfo(x.dest.path() + "/uu.bin").lastModified(), before);
    QCOMPARE(x.destFiles(), (QStringList{"photo.jpg", "pic.png", "uu.bin"}));
    compareAll(x, {m_files[1], m_files[2], m_files[3]});
}

void TestDownloadInn::downloadAllOfAGroup()
{
    Win x;
    QVERIFY(listByProgram(x, GroupA));
    QTest::keyClick(x.w.MSHResults, Qt::Key_F2);
    compareAll(x, m_files);
    QCOMPARE(x.destFiles().size(), m_files.size());   // no temporary file left, nothing else written
    QCOMPARE(x.w.status(1), QStringLiteral("Finished Downloading"));
    QCOMPARE(x.w.lstFiles->count(), m_files.size());
}

void TestDownloadInn::articleNumbersOfTheCurrentGroup()
{
    // The listing came from group A, but the server has group B selected since (as after a
    // listing read from the cache): the article number must still fetch group A's article.
    Win x;
    QVERIFY(listByProgram(x, GroupA));
    QVERIFY(x.w.session->runTransaction([](NewsTransport *t) { t->SelectGroup(GroupB); }));
    downloadRow(x, QStringLiteral("\"pic.png\""));
    compareAll(x, {m_files[3]});
}

void TestDownloadInn::stopLeavesNothingBehind()
{
    Win x;
    QVERIFY(listByProgram(x, GroupA));
    select(x, {rowOf(x, QStringLiteral("\"big.bin\" yEnc (20/44)"))});
    bool stopped = false;
    QTimer poll;
    poll.setInterval(0);
    connect(&poll, &QTimer::timeout, [&] {
        if (!stopped && x.w.status(3) == QLatin1String("[5/44]")) {
            stopped = true;
            x.w.StopOperation();
        }
    });
    poll.start();
    x.w.action(QStringLiteral("menuDownload"))->trigger();
    poll.stop();
    QVERIFY(stopped);
    QVERIFY(x.w.S.StopRequested);
    QCOMPARE(x.destFiles(), QStringList());
    QVERIFY(x.w.lstFiles->count() == 0);
    QVERIFY(x.w.status(1) != QLatin1String("Finished Downloading"));
    QVERIFY(!x.w.S.DownloadBusy);
}

void TestDownloadInn::cancelledPart()
{
    Win x;
    QVERIFY(listByProgram(x, GroupB));
    const int third = rowOf(x, QStringLiteral("(3/6)"));
    QVERIFY(third);
    QVERIFY(posts::cancel(x.w.grid->cell(third, 5)));
    // listed again after the cancel, and with the stale listing from before it
    Win fresh;
    QVERIFY(listByProgram(fresh, GroupB));
    for (Win *w : {&fresh, &x}) {
        w->w.action(QStringLiteral("menuDownloadAll"))->trigger();
        const QString s1 = w->w.status(1), s2 = w->w.status(2);
        QVERIFY2(s2 == QLatin1String("Incomplete") || s1 == QLatin1String("Message no longer available on server."),
                 qPrintable(s1 + " | " + s2));
        QCOMPARE(w->destFiles(), QStringList());
    }
}

void TestDownloadInn::hostileNameAndBadChecksum()
{
    const QString group = QStringLiteral("alt.binaries.newsdredge.dlhand") + Suffix;
    QVERIFY(posts::newGroup(group));
    const QByteArray evil = posts::randomBytes(3000, 21);
    QVERIFY(!inn::post(yencArticle(group, QStringLiteral("evil one"), "../../../tmp/evil.sh", evil, "")).isEmpty());
    QVERIFY(!inn::post(yencArticle(group, QStringLiteral("bad sum"), "bad.bin", posts::randomBytes(2000, 22),
                                   " crc32=01234567")).isEmpty());
    Win x;
    QVERIFY(listByProgram(x, group));

    // the name is kept inside the download directory
    downloadRow(x, QStringLiteral("evil one"));
    QCOMPARE(x.destFiles(), QStringList{QStringLiteral(".._.._.._tmp_evil.sh")});
    QCOMPARE(posts::readFile(x.dest.path() + QStringLiteral("/.._.._.._tmp_evil.sh")), evil);

    // a checksum that does not match: "Error Decoding", the real name stays free
    downloadRow(x, QStringLiteral("bad sum"));
    QCOMPARE(x.w.status(1), QStringLiteral("Error Decoding"));
    QCOMPARE(x.w.S.TransportError, 255);
    QVERIFY(!QFileInfo::exists(x.dest.path() + QStringLiteral("/bad.bin")));
    QCOMPARE(x.w.lstFiles->find(QStringLiteral("bad.bin")), -1);
    for (const QString &f : x.destFiles())
        QVERIFY2(!f.endsWith(QLatin1String(".tmp")), qPrintable(f));
}

QTEST_MAIN(TestDownloadInn)
#include "tst_download_inn.moc"
