// Downloading against a scripted server: failures in the middle of a set, and what one fetched
// article leaves for the message viewer.
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "messages/MessageGrid.h"
#include "news/Session.h"
#include "support/ArticleServer.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QItemSelectionModel>
#include <QTableView>
#include <QtTest>

namespace {

// parts of a 3-part yEnc set of the bytes "abcdef..." (two bytes per part)
QByteArray yencPart(int k)
{
    QByteArray data;
    for (int i = 0; i < 2; ++i)
        data += char('a' + (k - 1) * 2 + i + 42);
    return "=ybegin part=" + QByteArray::number(k) + " total=3 line=128 size=6 name=set.bin\r\n=ypart begin="
           + QByteArray::number((k - 1) * 2 + 1) + " end=" + QByteArray::number(k * 2) + "\r\n" + data + "\r\n=yend size=2 part="
           + QByteArray::number(k) + "\r\n";
}

} // namespace

class TestDownloadFaults : public QObject {
    Q_OBJECT

    struct Fixture {
        ArticleServer srv;
        ScriptedPrompter p;
        frmMain w{&p, frmMain::Options{true}};
        QTemporaryDir dest;
        QSet<qint64> &failing = srv.failing;    // ARTICLE numbers answered with a server fault
        Fixture()
        {
            w.opt.NNTPServer = srv.address();
            w.opt.Timeout = 10;
            w.opt.DestDir = dest.path() + QLatin1Char('/');
            for (int n = 1; n <= 3; ++n)
                srv.articles[n] = ArticleServer::article(n, "my set yEnc (" + QByteArray::number(n) + "/3)", yencPart(n));
            srv.articles[5] = ArticleServer::article(5, "plain", "Hello\r\n.dotted line\r\nWorld\r\n");
            srv.articles[6] = ArticleServer::article(6, "pic", "  Look at this  \r\n=ybegin line=128 size=1 name=p.gif\r\nk\r\n=yend size=1\r\n");
            w.session->NNTP_Connect(false);     // connected, as a listing leaves it
            w.S.CurrentGroup = QStringLiteral("alt.test");
            w.grid->ResizeGrid();
            w.grid->SetRows(5);
            for (int k = 1; k <= 3; ++k)
                w.grid->setRowCells(k, {QString::number(4 - k), {}, QStringLiteral("my set yEnc (%1/3)").arg(4 - k)});
            for (nd::Cmd c : nd::cmds::MessageOpen)   // the message commands, as a listing leaves them
                w.SetMenuState(c, true);
        }
        QStringList files() const { return QDir(dest.path()).entryList(QDir::Files | QDir::Hidden); }
        int fetches() const
        {
            return int(std::count_if(srv.commands.begin(), srv.commands.end(), [](const QByteArray &c) { return c.startsWith("ARTICLE"); }));
        }
        void downloadRow(int r)
        {
            w.MSHResults->selectionModel()->select(w.grid->index(r - 1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            w.action(QStringLiteral("menuDownload"))->trigger();
        }
    };

private slots:
    // all rows of a set selected, or Download All: the set's other rows are taken with it, and
    // not searched and fetched again
    void aSetIsDownloadedOnce()
    {
        for (const bool all : {false, true}) {
            Fixture x;
            for (int r = 1; r <= 3 && !all; ++r)
                x.w.MSHResults->selectionModel()->select(x.w.grid->index(r - 1, 0),
                                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
            x.w.action(all ? QStringLiteral("menuDownloadAll") : QStringLiteral("menuDownload"))->trigger();
            QCOMPARE(x.files(), QStringList{QStringLiteral("set.bin")});
            QCOMPARE(testfile::readFile(x.dest.path() + QStringLiteral("/set.bin")), QByteArray("abcdef"));
            QVERIFY(x.srv.sawCommand("GROUP alt.test"));   // the listing's group is selected first
            QCOMPARE(x.w.S.TempFileName, QString());
            QCOMPARE(x.fetches(), 3);
            if (!all)   // the other selected rows were taken
                QCOMPARE(x.w.status(1), QStringLiteral("Previously Downloaded"));
        }
    }

    void oneRunAtATime()
    {
        Fixture x;
        x.w.S.DownloadBusy = true;
        x.w.action(QStringLiteral("menuDownloadAll"))->trigger();
        QCOMPARE(x.w.status(2), QStringLiteral("Please wait until current transaction is finished"));
        x.w.setStatus(2, QString());
        x.w.downloader->DownloadRows(-1);
        QCOMPARE(x.w.status(2), QStringLiteral("Please wait until current transaction is finished"));
        QVERIFY(!x.srv.sawCommand("ARTICLE"));
        QCOMPARE(x.files(), QStringList());
    }

    void serverFaultInTheMiddleOfASet()
    {
        Fixture x;
        x.failing.insert(2);
        x.downloadRow(1);
        QCOMPARE(x.w.status(1), QStringLiteral("Error retrieving message."));
        QVERIFY(x.w.S.TransportError != 0);
        QCOMPARE(x.files(), QStringList());     // nothing decoded, the temporary file is gone
        QVERIFY(!x.srv.sawCommand("ARTICLE 3"));  // the set stopped at the failing part
        QVERIFY(!x.w.S.DownloadBusy);
        QCOMPARE(x.w.lstFiles->count(), 0);
    }

    void whatOneArticleLeavesForTheViewer()
    {
        Fixture x;
        Downloader *d = x.w.downloader;
        // what the fetch returns, and what the window's state shows of it
        const ArticleFetch text = d->NNTP_DownloadMessage(5);
        QVERIFY(text.ok() && text.result.ok());
        QCOMPARE(text.result.status, 220);
        QCOMPARE(x.w.S.TransportError, 0);
        // the transport has already undone the dot doubling; it is not undone twice
        QCOMPARE(text.text, QStringLiteral("Hello\r\n.dotted line\r\nWorld\r\n"));
        QCOMPARE(x.w.S.MessageText, text.text);
        QCOMPARE(text.kind, ArticleFetch::Kind::None);
        QVERIFY(text.attachmentName.isEmpty() && x.w.S.AttachmentName.isEmpty());

        const ArticleFetch picture = d->NNTP_DownloadMessage(6);
        QCOMPARE(picture.text, QStringLiteral("Look at this{binary attachment}"));
        QCOMPARE(x.w.S.MessageText, picture.text);
        QCOMPARE(picture.kind, ArticleFetch::Kind::Yenc);
        QVERIFY(x.w.S.IsYenc);
        QCOMPARE(picture.attachmentName, QStringLiteral("p.gif"));
        QCOMPARE(x.w.S.AttachmentName, QStringLiteral("p.gif"));
        QVERIFY(picture.bytes.contains("=ybegin "));
        QVERIFY(!picture.duplicate);
        QCOMPARE(x.files(), QStringList());     // showing a message writes no file

        const ArticleFetch gone = d->NNTP_DownloadMessage(8);
        const QString goneText = QStringLiteral("Message no longer available on server.");
        QVERIFY(gone.gone && !gone.ok());
        QCOMPARE(gone.error, -1);
        QCOMPARE(QStringList({gone.text, x.w.S.MessageText, x.w.status(1)}), QStringList({goneText, goneText, goneText}));
        QCOMPARE(x.w.S.TransportError, -1);
    }
};

QTEST_MAIN(TestDownloadFaults)
#include "tst_download_faults.moc"
