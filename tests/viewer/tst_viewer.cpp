// The message viewer against a scripted news server: text messages, picture attachments with
// preview on and off, stepping through the grid, the text limit, printing, copying and mail; with
// real boxes: the viewer under its boxes and other windows, the previews across a disconnect, a
// new listing and a download.
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "gui/download/SavedFilesView.h"
#include "gui/download/frmMaxPrev.h"
#include "gui/viewer/ViewerView.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "post/Poster.h"
#include "gui/post/PostWindows.h"
#include "gui/post/frmPostMsg.h"
#include "decoder/DecoderTestUtil.h"
#include "support/ArticleServer.h"
#include "ui/ItemList.h"
#include "gui/ui/PictureBox.h"
#include "gui/ui/GuiPrompter.h"
#include "ui/Prompter.h"
#include "viewer/Viewer.h"
#include "gui/viewer/frmMessage.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QDesktopServices>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPrinter>
#include <QTableView>
#include <QTimer>
#include <QtTest>

namespace {

QByteArray picture(QColor color)
{
    QImage img(24, 16, QImage::Format_RGB32);
    img.fill(color);
    QByteArray bytes;
    QBuffer buf(&bytes);
    buf.open(QIODevice::WriteOnly);
    img.save(&buf, "BMP");
    return bytes;
}

// A message text of exactly length characters: one long line and its CR LF.
QByteArray text(int length)
{
    return QByteArray(length - 2, 'a') + "\r\n";
}

} // namespace

class ShowCounter : public QObject {
public:
    int shows = 0;
    bool eventFilter(QObject *, QEvent *e) override
    {
        shows += e->type() == QEvent::Show;
        return false;
    }
};

class UrlRecorder : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl &url) { urls << url; }
};

class TstViewer : public QObject {
    Q_OBJECT

    // The window with a grid of messages, connected to the scripted server; answering through
    // scripted prompts or through real boxes.
    template <class P = ScriptedPrompter>
    struct Fixture {
        ArticleServer srv;
        P p;
        frmMain w{&p, frmMain::Options{true}};
        QTemporaryDir dest;
        QByteArray red = picture(Qt::red);
        QByteArray blue = picture(Qt::blue);
        QMap<qint64, QByteArray> &articles = srv.articles;
        Fixture()
        {
            srv.groupRange = "9 11 19";
            articles[11] = ArticleServer::article(11, "Hello there", "First line\r\nsecond line\r\n");
            articles[12] = ArticleServer::article(12, "red picture", "Look at this  \r\n" + testutil::yencSingle(red, "pic.bmp"));
            articles[13] = ArticleServer::article(13, "blue picture", "Blue one\r\n" + testutil::uuencode(blue, "blue.bmp"));
            articles[14] = ArticleServer::article(14, "long", text(9999));
            articles[15] = ArticleServer::article(15, "longer", text(10000));
            articles[16] = ArticleServer::article(16, "longest", text(12345));
            articles[17] = ArticleServer::article(17, "broken picture", "=ybegin line=128 size=50 name=bad.bmp\r\nabc\r\n=yend size=50\r\n");
            w.opt.NNTPServer = srv.address();
            w.opt.Timeout = 10;
            w.opt.DestDir = dest.path() + QLatin1Char('/');
            w.session->NNTP_Connect(false);
            w.S.CurrentGroup = QStringLiteral("alt.test");
            w.grid->ResizeGrid();
            const QStringList subjects = {"Hello there", "red picture", "blue picture", "long", "longer", "longest", "broken picture", "gone"};
            w.grid->SetRows(int(subjects.size()) + 2);   // the message rows and the empty last row
            for (int i = 0; i < subjects.size(); ++i)
                w.grid->setRowCells(i + 1, {QString::number(11 + i), QStringLiteral("11/2%1/2026").arg(i), subjects[i],
                                   QStringLiteral("Ann <ann@example.org>"), QStringLiteral("x!y"),
                                   QStringLiteral("<m%1@x>").arg(11 + i), QString(), QString()});
        }
        frmMessage *v() const { return w.findChild<ViewerView *>()->window(); }
        SavedFilesView *previews() const { return w.findChild<SavedFilesView *>(); }
        void open(int row)
        {
            w.MSHResults->selectionModel()->setCurrentIndex(w.grid->index(row - 1, 0),
                                                           QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            w.viewer->msgActivate();
        }
        QStringList files() const { return QDir(dest.path()).entryList(QDir::Files | QDir::Hidden); }
        QString path(const QString &name) const { return dest.path() + QLatin1Char('/') + name; }
        int fetches() const
        {
            return int(std::count_if(srv.commands.begin(), srv.commands.end(), [](const QByteArray &c) { return c.startsWith("ARTICLE"); }));
        }
        QByteArray fileBytes(const QString &name) const
        {
            QFile f(path(name));
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
        }
        bool write(const QString &name, const QByteArray &bytes) const
        {
            QFile f(path(name));
            return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
        }
        bool showMain()
        {
            w.show();
            return QTest::qWaitForWindowActive(&w);
        }
    };

private slots:
    void init() { QFile::remove(SettingsStore().fileName()); }

    void textMessage()
    {
        Fixture<> x;
        QVERIFY(x.write(QStringLiteral("~image2.tmp"), "an old picture"));

        x.open(1);
        frmMessage *v = x.v();
        QVERIFY(v && v->isVisible() && v->ViewerShown);
        QVERIFY(x.srv.sawCommand("ARTICLE 11"));
        QCOMPARE(v->ViewArticleNumber, 11);
        QCOMPARE((QStringList{v->txtTitle->text(), v->txtDate->text(), v->txtEmail->text()}),
                 (QStringList{"Hello there", "11/20/2026", "Ann <ann@example.org>"}));
        QCOMPARE(v->txtMsgBody->toPlainText(), QStringLiteral("First line\nsecond line\n"));
        QCOMPARE(v->frameBody->title(), QStringLiteral("Message Contents"));
        QCOMPARE((QStringList{x.w.status(1), x.w.status(2)}), (QStringList{"Done", ""}));
        QVERIFY(v->Image1->isHidden());
        // the old picture is gone and the article's part file too
        QCOMPARE(x.files(), QStringList());
        QVERIFY(x.w.S.TempFileName.isEmpty());
        QVERIFY(x.w.MSHResults->isEnabled());
        QVERIFY(v->txtTitle->isReadOnly() && v->txtMsgBody->isReadOnly());
        QTest::keyClick(v->txtMsgBody, Qt::Key_Escape);   // closes, keeping the place
        QVERIFY(!v->isVisible() && !v->ViewerShown);
        QVERIFY(x.w.store().contains(QStringLiteral("MWidth")));
    }

    void pictureWithPreviewOnAndOff()
    {
        Fixture<> x;
        // a file the user saved under the attachment's name is never touched by viewing
        QVERIFY(x.write(QStringLiteral("pic.bmp"), "mine"));

        x.open(2);
        frmMessage *v = x.v();
        QCOMPARE(x.w.S.TransportError, 0);
        QCOMPARE(v->txtMsgBody->toPlainText(), QStringLiteral("Look at this{binary attachment}"));
        QCOMPARE(x.fileBytes(QStringLiteral("~image2.tmp")), x.red);
        QCOMPARE(x.fileBytes(QStringLiteral("pic.bmp")), QByteArray("mine"));
        QCOMPARE(x.files(), (QStringList{"pic.bmp", "~image2.tmp"}));   // no part file left
        QVERIFY(v->Image1->isVisible());
        QCOMPARE(v->Image1->image().pixelColor(2, 2), QColor(Qt::red));
        QCOMPARE(x.previews()->previewPath(), x.path(QStringLiteral("~image2.tmp")));
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        QCOMPARE(x.w.lstFiles->count(), 0);   // viewing saves nothing

        // the next message replaces the picture; a click on it opens the large preview
        x.open(3);
        QCOMPARE(x.fileBytes(QStringLiteral("~image2.tmp")), x.blue);   // uuencoded this time
        QCOMPARE(v->Image1->image().pixelColor(2, 2), QColor(Qt::blue));
        QTest::mouseClick(v->Image1, Qt::LeftButton);
        QVERIFY(x.w.action(QStringLiteral("menuPreviewL"))->isChecked());
        QVERIFY(x.previews()->largePreview() && x.previews()->largePreview()->isVisible());

        // and a text message afterwards deletes it and shows no picture
        x.open(1);
        QVERIFY(!QFile::exists(x.path(QStringLiteral("~image2.tmp"))));
        QVERIFY(v->Image1->isHidden());

        // with preview off
        x.w.action(QStringLiteral("menuPreview"))->trigger();
        QVERIFY(!x.previews()->previewOn());
        x.open(2);
        QCOMPARE(x.w.S.TransportError, 0);
        QCOMPARE(x.fileBytes(QStringLiteral("~image2.tmp")), x.red);   // decoded and kept...
        QVERIFY(v->Image1->isHidden());                                  // ...but not shown
        QVERIFY(!v->Image1->hasPicture());
        QVERIFY(x.w.Picture1->pixmap().isNull());
    }

    void aBrokenPictureLeavesTheTextAndNoFile()
    {
        Fixture<> x;
        x.open(7);
        frmMessage *v = x.v();
        QVERIFY(v->isVisible());
        QCOMPARE(v->txtMsgBody->toPlainText(), QStringLiteral("{binary attachment}"));
        QCOMPARE(x.w.S.TransportError, -1);
        QCOMPARE(x.files(), QStringList());   // neither a picture nor a damaged leftover
        QVERIFY(v->Image1->isHidden());
        // the message commands stay off while the text is shown, and come back with the close
        for (const char *c : {"menuDownload", "menuDownloadAll", "menuView", "menuGroup", "menuConnect", "menuPostC", "menuWebM"})
            QVERIFY2(!x.w.action(QLatin1String(c))->isEnabled(), c);
        v->close();
        for (const char *c : {"menuDownload", "menuDownloadAll", "menuView", "menuGroup", "menuConnect"})
            QVERIFY2(x.w.action(QLatin1String(c))->isEnabled(), c);
    }

    void nextAndPreviousStopAtBothEnds()
    {
        Fixture<> x;
        x.open(8);   // a message whose article is gone is not shown
        QCOMPARE(x.w.status(1), QStringLiteral("Message no longer available on server."));
        QVERIFY(!x.v()->isVisible());
        QVERIFY(x.v()->txtMsgBody->toPlainText().isEmpty());
        QVERIFY(x.w.action(QStringLiteral("menuView"))->isEnabled());   // the opening gave them back
        QVERIFY(x.w.MSHResults->isEnabled());
        QCOMPARE(x.files(), QStringList());

        x.open(1);
        frmMessage *v = x.v();
        const int before = x.fetches();
        v->action(QStringLiteral("menuPrevious"))->trigger();   // row 1: nothing
        QCOMPARE(x.fetches(), before);
        QCOMPARE(x.w.viewer->selectionEndRow(), 1);
        v->action(QStringLiteral("menuNext"))->trigger();
        QCOMPARE(x.w.viewer->selectionEndRow(), 2);
        QVERIFY(x.srv.commands.last().startsWith("ARTICLE 12"));
        QCOMPARE(v->txtTitle->text(), QStringLiteral("red picture"));
        v->Previous();
        QCOMPARE(v->txtTitle->text(), QStringLiteral("Hello there"));
        QCOMPARE(x.w.viewer->selectionEndRow(), 1);

        x.open(8);   // the last message row (its article is gone)
        QCOMPARE(x.w.S.TransportError, -1);
        QCOMPARE(v->txtTitle->text(), QStringLiteral("gone"));
        const int atEnd = x.fetches();
        v->Next();
        QCOMPARE(x.fetches(), atEnd);
        QCOMPARE(x.w.viewer->selectionEndRow(), 8);
        v->Previous();
        QCOMPARE(v->txtTitle->text(), QStringLiteral("broken picture"));
        QVERIFY(x.w.store().contains(QStringLiteral("MTop")));   // Next and Previous keep the place
    }

    void theTextLimit()
    {
        Fixture<> x;
        const QString a(10000, QLatin1Char('a'));
        // row, the text kept (-1: not checked), the body shown (10000 at most: a 10000 text is
        // shown whole), partial or not
        const struct { int row, kept; QString body; bool partial; } rows[] = {
            {4, 9999, a.left(9997) + '\n', false}, {5, 10000, a.left(9998) + '\n', true}, {6, -1, a, true},
            {1, -1, "First line\nsecond line\n", false}};
        for (const auto &r : rows) {
            x.open(r.row);
            if (r.kept >= 0)
                QCOMPARE(x.w.S.MessageText.size(), r.kept);
            QCOMPARE(x.v()->txtMsgBody->toPlainText(), r.body);
            QCOMPARE(x.v()->frameBody->title(), r.partial ? QStringLiteral("Message Contents (Partial)") : QStringLiteral("Message Contents"));
        }
    }

    void copyPrintAndMail()
    {
        Fixture<> x;
        x.open(1);
        frmMessage *v = x.v();
        QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
        v->action(QStringLiteral("menuCopy"))->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("First line\nsecond line\n"));

        QTextCursor c = v->txtMsgBody->textCursor();
        c.setPosition(6);
        c.setPosition(15, QTextCursor::KeepAnchor);   // "line\nseco"
        v->txtMsgBody->setTextCursor(c);
        v->Copy();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("line\nseco"));

        QCOMPARE(v->printText(), QStringLiteral("\n\n\nMessage Title : Hello there\n\nFirst line\nsecond line\n"));
        auto printTo = [v](const QString &pdf) {
            v->printerFactory = [pdf] {
                auto pr = std::make_unique<QPrinter>();
                pr->setOutputFormat(QPrinter::PdfFormat);
                pr->setOutputFileName(pdf);
                return pr;
            };
            v->Print();
        };
        printTo(x.path(QStringLiteral("out.pdf")));
        QVERIFY(x.p.asked.isEmpty());
        QVERIFY(x.fileBytes(QStringLiteral("out.pdf")).startsWith("%PDF"));
        // a printer that cannot be written to is a failure, not silence
        printTo(QStringLiteral("/no/such/dir/out.pdf"));
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Error: Cannot Print.")});
        QCOMPARE(x.p.asked[0].icon, Prompter::Critical);

        // a click on the address hands it to the mail program
        x.p.clear();
        UrlRecorder rec;
        QDesktopServices::setUrlHandler(QStringLiteral("mailto"), &rec, "open");
        QTest::mouseClick(v->txtEmail, Qt::LeftButton);
        QDesktopServices::unsetUrlHandler(QStringLiteral("mailto"));
        QCOMPARE(rec.urls, QList<QUrl>{QUrl(QStringLiteral("mailto:ann@example.org"))});
        QVERIFY(x.p.asked.isEmpty());
    }

    void mailAddresses()
    {
        QCOMPARE(frmMessage::mailAddress(QStringLiteral("Ann Smith <ann@example.org>")), QStringLiteral("ann@example.org"));
        QCOMPARE(frmMessage::mailAddress(QStringLiteral("ann@example.org (Ann Smith)")), QStringLiteral("ann@example.org"));
        QCOMPARE(frmMessage::mailAddress(QStringLiteral("\"Smith, <Ann>\" <a.s@example.org>")), QStringLiteral("a.s@example.org"));
        QCOMPARE(frmMessage::mailAddress(QStringLiteral("nobody here")), QString());
        QCOMPARE(frmMessage::mailtoTarget(QStringLiteral("Bo <bo+news&x@example.org>")),
                 QStringLiteral("mailto:bo%2Bnews%26x@example.org"));
        QCOMPARE(frmMessage::mailtoTarget(QStringLiteral("nobody")), QString());
    }

    void sizeAndPlace()
    {
        Fixture<> x;
        x.open(1);
        frmMessage *v = x.v();
        // default size is the minimum, 5745 x 4500 twips
        QCOMPARE(v->size(), QSize(383, 300));
        v->resize(200, 150);
        QCOMPARE(v->size(), QSize(383, 300));   // never smaller
        v->setGeometry(40, 50, 500, 420);
        v->SaveViewerGeometry();
        const auto stored = [&x](const char *key) { return x.w.store().getDouble(QLatin1String(key), -1); };
        QCOMPARE((QList<double>{stored("MLeft"), stored("MTop"), stored("MWidth")}), (QList<double>{600, 750, 7500}));   // in twips
        v->close();
        v->setGeometry(0, 0, 383, 300);
        x.open(2);
        QCOMPARE(v->geometry(), QRect(40, 50, 500, 420));   // the next open comes back there
    }

    void replyQuotesTheFirstHundredCharacters()
    {
        Fixture<> x;
        x.w.store().save(QStringLiteral("Signature"), QStringLiteral("-- Ann"));
        x.w.UpdateCaption(nd::Caption::Messages);   // a message listing is shown
        x.w.show();
        x.open(4);
        frmMessage *v = x.v();
        QVERIFY(QTest::qWaitForWindowActive(v));
        QAction *reply = v->action(QStringLiteral("menuReply"));
        QVERIFY(reply->isEnabled());   // the post window is there to write it in
        reply->trigger();
        QVERIFY(x.p.asked.isEmpty());
        frmPostMsg *post = x.w.postWindows->window();
        QVERIFY(post && post->isVisible());
        QCOMPARE(x.w.poster->ReplyMode, 1);
        QCOMPARE(post->txtSubject->text(), QStringLiteral("Re : long"));
        QCOMPARE(post->txtMessage->toPlainText(),
                 QStringLiteral("\n\n-- Ann\n") + QString(40, QLatin1Char('-')) + QLatin1Char('\n') + QString(100, QLatin1Char('a')));
        // the viewer stays open while its reply is written
        post->activateWindow();
        QTRY_VERIFY(post->isActiveWindow());
        QVERIFY(!v->isActiveWindow());
        QVERIFY(v->isVisible());
        post->close();
    }

    void refusedWhileATransactionRuns()
    {
        Fixture<> x;
        x.w.S.DownloadBusy = true;
        x.open(1);
        QCOMPARE(x.w.status(2), QStringLiteral("Please wait until current transaction is finished"));
        QVERIFY(!x.v());
        QVERIFY(!x.srv.sawCommand("ARTICLE"));
        // the empty last row opens nothing either
        x.w.S.DownloadBusy = false;
        x.w.grid->SetRows(x.w.grid->Rows() + 1);
        x.open(x.w.grid->Rows() - 1);
        QVERIFY(!x.v());
        // the View command opens the selected row
        x.w.MSHResults->selectionModel()->setCurrentIndex(x.w.grid->index(0, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        x.w.SetMenuState(nd::Cmd::View, true);   // as a listing leaves it
        x.w.action(QStringLiteral("menuView"))->trigger();
        QVERIFY(x.v() && x.v()->isVisible());
    }

    // A box the viewer shows, or another program taking the focus, leaves the viewer up;
    // turning back to the main window closes it.
    void viewerStaysUpUnderItsBoxes()
    {
        Fixture<GuiPrompter> x;
        QVERIFY(x.showMain());
        x.open(1);
        frmMessage *v = x.v();
        QVERIFY(v && v->isVisible());
        v->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(v));

        // no default printer: "Error: Cannot Print." in a real box over the viewer
        bool boxSeen = false, upUnderBox = false;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, v, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || !box->isActiveWindow())
                return;
            poll.stop();
            boxSeen = box->text() == QLatin1String("Error: Cannot Print.");
            QTest::qWait(50);
            upUnderBox = v->isVisible();
            box->accept();
        });
        poll.start(20);
        v->printerFactory = [] { return std::unique_ptr<QPrinter>(); };
        v->action(QStringLiteral("menuPrint"))->trigger();
        poll.stop();
        QVERIFY(boxSeen);
        QVERIFY(upUnderBox);
        QVERIFY(v->isVisible());

        // another program (the mail program) takes the focus
        QWidget other;
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTest::qWait(50);
        QVERIFY(v->isVisible());
        QVERIFY(!x.w.action(QStringLiteral("menuView"))->isEnabled());

        // back to the main window: the viewer goes and gives the commands back
        x.w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&x.w));
        QTRY_VERIFY(!v->isVisible() && !v->ViewerShown);
        QVERIFY(x.w.action(QStringLiteral("menuView"))->isEnabled());
    }

    // The large preview is emptied by a disconnect; an emptied small preview stays empty when
    // the box is resized or double-clicked.
    void previewsStayClearedOnceCleared()
    {
        Fixture<GuiPrompter> x;
        x.srv.respond = [base = x.srv.respond](const QByteArray &cmd) -> QByteArray {
            if (cmd == "LIST OVERVIEW.FMT")
                return "500 no\r\n";
            if (cmd.startsWith("OVER") || cmd.startsWith("XOVER"))
                return "224 follows\r\n11\tHello there\tAnn <ann@example.org>\tMon, 2 Nov 2026 10:00:00 +0000\t<m11@x>\t\t100\t3\r\n.\r\n";
            return base(cmd);
        };
        QVERIFY(x.showMain());
        const QString pic = x.path(QStringLiteral("blue.bmp"));
        QVERIFY(x.write(QStringLiteral("blue.bmp"), x.blue));
        x.w.action(QStringLiteral("menuPreviewL"))->trigger();
        x.w.savedFiles->AddSavedFile(pic);
        x.w.savedFiles->PreviewFile(pic);
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        frmMaxPrev *large = x.previews()->largePreview();
        QVERIFY(large && large->picture()->hasPicture());

        x.w.session->NNTP_Disconnect();
        QVERIFY(x.w.Picture1->pixmap().isNull());
        QVERIFY(!large->picture()->hasPicture());
        x.w.resize(x.w.width() + 40, x.w.height() + 30);
        QTest::qWait(50);
        QVERIFY(x.w.Picture1->pixmap().isNull());

        // a new listing empties the box as well; a double-click then shows nothing
        large->close();
        x.w.savedFiles->PreviewFile(pic);
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        x.w.session->NNTP_Connect(false);
        x.w.S.CurrentGroup = QStringLiteral("alt.test");
        x.w.messages->ListMessages(false);
        QCOMPARE(x.w.grid->lastMessageRow(), 1);
        QVERIFY(x.w.Picture1->pixmap().isNull());
        x.w.resize(x.w.width() - 40, x.w.height() - 30);
        QTest::qWait(50);
        QVERIFY(x.w.Picture1->pixmap().isNull());
        QTest::mouseDClick(x.w.Picture1, Qt::LeftButton);
        QVERIFY(x.w.Picture1->pixmap().isNull());
        QVERIFY(!large->isVisible());
    }

    // A downloaded picture is listed once and shown once.
    void downloadedPictureIsShownOnce()
    {
        Fixture<GuiPrompter> x;
        QVERIFY(x.showMain());
        ShowCounter shows;
        x.w.Picture1->installEventFilter(&shows);
        x.w.MSHResults->selectionModel()->select(x.w.grid->index(1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        x.w.downloader->DownloadSelected();
        QCOMPARE(x.fileBytes(QStringLiteral("pic.bmp")), x.red);
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("pic.bmp")});
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        QCOMPARE(shows.shows, 1);
    }
};

QTEST_MAIN(TstViewer)
#include "tst_viewer.moc"
