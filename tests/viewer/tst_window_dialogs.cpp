// Real dialogs and windows, not scripted answers: the file dialogs the commands open (Qt's own
// dialog, offscreen) and what they list; the viewer under its boxes and other windows; the
// previews across a disconnect, a new listing and a download.
#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "gui/download/SavedFilesView.h"
#include "gui/download/frmMaxPrev.h"
#include "gui/viewer/ViewerView.h"
#include "groups/Favorites.h"
#include "harvest/Harvester.h"
#include "messages/MessageGrid.h"
#include "messages/MessageList.h"
#include "news/Session.h"
#include "servers/ServerChecker.h"
#include "servers/ServerList.h"
#include "support/ScriptedNntpServer.h"
#include "ui/ItemList.h"
#include "gui/ui/PictureBox.h"
#include "gui/ui/GuiPrompter.h"
#include "ui/Prompter.h"
#include "viewer/Viewer.h"
#include "gui/viewer/frmMessage.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QListView>
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

QByteArray yencode(const QByteArray &data, const QByteArray &name)
{
    QByteArray out = "=ybegin line=128 size=" + QByteArray::number(data.size()) + " name=" + name + "\r\n";
    int col = 0;
    for (char ch : data) {
        const uchar o = uchar(uchar(ch) + 42);
        if (o == 0 || o == '\n' || o == '\r' || o == '=' || o == '.' || o == '\t' || o == ' ') {
            out += '=';
            out += char(uchar(o + 64));
            col += 2;
        } else {
            out += char(o);
            ++col;
        }
        if (col >= 128) {
            out += "\r\n";
            col = 0;
        }
    }
    if (col)
        out += "\r\n";
    return out + "=yend size=" + QByteArray::number(data.size()) + "\r\n";
}

QByteArray article(qint64 n, const QByteArray &subject, const QByteArray &body)
{
    return "220 " + QByteArray::number(n) + " <m" + QByteArray::number(n) + "@x> article\r\nFrom: Ann <ann@example.org>\r\nSubject: "
           + subject + "\r\nMessage-ID: <m" + QByteArray::number(n) + "@x>\r\n\r\n" + body + ".\r\n";
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// The files (not folders) a file dialog lists once its folder is read.
QStringList listedFiles(QFileDialog *dlg)
{
    auto *view = dlg->findChild<QListView *>(QStringLiteral("listView"));
    auto *fs = dlg->findChild<QFileSystemModel *>();
    if (!view || !fs)
        return {QStringLiteral("<no list>")};
    QStringList names;
    int stable = 0, lastCount = -1;
    QElapsedTimer t;
    t.start();
    // the folder is read on a thread: wait until its sub-folder is there and the count holds
    while (t.elapsed() < 5000 && stable < 5) {
        QTest::qWait(40);
        const int n = view->model()->rowCount(view->rootIndex());
        stable = n > 0 && n == lastCount ? stable + 1 : 0;
        lastCount = n;
    }
    const QModelIndex root = view->rootIndex();
    for (int r = 0; r < view->model()->rowCount(root); ++r) {
        const QModelIndex i = view->model()->index(r, 0, root);
        if (!(i.flags() & Qt::ItemIsEnabled))
            continue;
        if (view->model() == fs && fs->isDir(i))
            continue;
        if (view->model() != fs && i.data().toString() == QLatin1String("sub"))
            continue;
        names << i.data().toString();
    }
    names.sort();
    return names;
}

// A news server answering a few articles, with a listing of alt.test.
struct Server {
    ScriptedNntpServer srv;
    QMap<qint64, QByteArray> articles;
    Server()
    {
        srv.respond = [this, base = srv.respond](const QByteArray &cmd) -> QByteArray {
            const QList<QByteArray> f = cmd.split(' ');
            if (f[0] == "GROUP")
                return "211 2 11 12 " + f.value(1) + "\r\n";
            if (cmd == "LIST OVERVIEW.FMT")
                return "500 no\r\n";
            if (f[0] == "OVER" || f[0] == "XOVER")
                return "224 follows\r\n11\tHello there\tAnn <ann@example.org>\tMon, 2 Nov 2026 10:00:00 +0000\t<m11@x>\t\t100\t3\r\n.\r\n";
            if (f[0] == "ARTICLE")
                return articles.value(f.value(1).toLongLong(), "430 no such article\r\n");
            return base(cmd);
        };
    }
};

class ShowCounter : public QObject {
public:
    int shows = 0;
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::Show)
            ++shows;
        return false;
    }
};

} // namespace

class TstWindowDialogs : public QObject {
    Q_OBJECT

    // The window with a grid of messages, connected to the scripted server.
    struct Viewing {
        Server s;
        GuiPrompter p;
        frmMain w{&p, frmMain::Options{false, true}};
        QTemporaryDir dest;
        Viewing()
        {
            s.articles[11] = article(11, "Hello there", "First line\r\nsecond line\r\n");
            s.articles[12] = article(12, "broken picture", "Some text\r\n=ybegin line=128 size=50 name=bad.bmp\r\nabc\r\n=yend size=50\r\n");
            s.articles[13] = article(13, "red picture", "Look\r\n" + yencode(picture(Qt::red), "red.bmp"));
            w.opt.NNTPServer = s.srv.address();
            w.opt.Timeout = 10;
            w.opt.DestDir = dest.path() + QLatin1Char('/');
            w.session->NNTP_Connect(false);
            w.S.CurrentGroup = QStringLiteral("alt.test");
            w.grid->ResizeGrid();
            const QStringList subjects = {"Hello there", "broken picture", "red picture"};
            w.grid->SetRows(int(subjects.size()) + 2);
            for (int i = 0; i < subjects.size(); ++i)
                w.grid->setRowCells(i + 1, {QString::number(11 + i), QStringLiteral("11/02/2026"), subjects[i],
                                            QStringLiteral("Ann <ann@example.org>"), QStringLiteral("x!y"),
                                            QStringLiteral("<m%1@x>").arg(11 + i), QString(), QString()});
        }
        void open(int row)
        {
            w.MSHResults->selectionModel()->setCurrentIndex(w.grid->index(row - 1, 0),
                                                           QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            w.viewer->msgActivate();
        }
        frmMessage *v() const { return w.findChild<ViewerView *>()->window(); }
    };

private slots:
    void init() { QFile::remove(SettingsStore().fileName()); }

    // Each command's file dialog lists the files its filter names.
    void fileDialogsListTheUsersFiles_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("pattern");
        QTest::newRow("import server addresses") << "import" << "*.txt";
        QTest::newRow("export server addresses") << "export" << "*.txt";
        QTest::newRow("load favorites") << "load" << "*.fav";
        QTest::newRow("save favorites") << "save" << "*.fav";
        QTest::newRow("harvest output file") << "output" << "*.txt";
        QTest::newRow("generate group list") << "generate" << "*.txt";
    }

    void fileDialogsListTheUsersFiles()
    {
        QFETCH(QString, command);
        QFETCH(QString, pattern);
        GuiPrompter p;
        p.setFileDialogOptions(int(QFileDialog::DontUseNativeDialog));
        frmMain w(&p, frmMain::Options{false, true});
        // the folder each dialog opens in holds files of every kind and a sub-folder
        QTemporaryDir tmp;
        const bool inAppDir = command == QLatin1String("import") || command == QLatin1String("export")
            || command == QLatin1String("generate");
        const QString dir = inAppDir ? nd::appDir() : tmp.path();
        QDir().mkpath(dir + QStringLiteral("/sub"));
        for (const char *n : {"servers.txt", "notes.TXT", "mine.fav", "other.fav", "picture.jpg", "data.dat"})
            QVERIFY(writeFile(dir + QLatin1Char('/') + QLatin1String(n), "news.example.org\n"));
        w.opt.FavoritesFile = tmp.path() + QStringLiteral("/mine.fav");
        w.S.OutputFileName = tmp.path() + QStringLiteral("/out.txt");

        QStringList expected = QDir(dir).entryList({pattern}, QDir::Files);
        expected.sort();
        QVERIFY(!expected.isEmpty());

        QStringList listed;
        bool seen = false;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &w, [&] {
            auto *dlg = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
            if (!dlg)
                return;
            poll.stop();
            seen = true;
            listed = listedFiles(dlg);
            dlg->reject();
        });
        poll.start(20);
        if (command == QLatin1String("import"))
            w.servers->menuImport();
        else if (command == QLatin1String("export"))
            w.servers->menuExport();
        else if (command == QLatin1String("load"))
            w.favorites->LoadFavorites();
        else if (command == QLatin1String("save"))
            w.favorites->SaveFavoritesAs(false);
        else if (command == QLatin1String("output"))
            QVERIFY(!w.harvester->AskOutputFile());
        else if (command == QLatin1String("generate")) {
            w.servers->lstServs->add(ServerList::Unchecked + QStringLiteral("127.0.0.1:1"));
            w.servers->lstServs->setSelected(0, true);
            w.action(QStringLiteral("menuGen"))->trigger();
        }
        poll.stop();
        QVERIFY(seen);
        QCOMPARE(listed, expected);
        for (const char *n : {"servers.txt", "notes.TXT", "mine.fav", "other.fav", "picture.jpg", "data.dat"})
            QFile::remove(dir + QLatin1Char('/') + QLatin1String(n));
    }

    void qtFiltersFromPairs()
    {
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Text (*.txt)|*.txt")), QStringLiteral("Text (*.txt)"));
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Pictures|*.jpg;*.gif|All Files (*.*)|*.*")),
                 QStringLiteral("Pictures (*.jpg *.gif);;All Files (*.*)"));
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Text (*.txt)")), QStringLiteral("Text (*.txt)"));
    }

    // A box the viewer shows, or another program taking the focus, leaves the viewer up;
    // turning back to the main window closes it.
    void viewerStaysUpUnderItsBoxes()
    {
        Viewing x;
        x.w.show();
        QVERIFY(QTest::qWaitForWindowActive(&x.w));
        x.open(1);
        frmMessage *v = x.v();
        QVERIFY(v && v->isVisible());
        v->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(v));

        // printing fails: "Error: Cannot Print." in a real box over the viewer
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
        other.setWindowTitle(QStringLiteral("mail"));
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTest::qWait(50);
        QVERIFY(v->isVisible());
        QVERIFY(!x.w.action(QStringLiteral("menuView"))->isEnabled());

        // back to the main window: the viewer goes and gives the commands back
        x.w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&x.w));
        QTRY_VERIFY(!v->isVisible());
        QVERIFY(x.w.action(QStringLiteral("menuView"))->isEnabled());
    }

    // A picture that fails to decode leaves the text shown and the message commands off.
    void failedPictureKeepsCommandsOff()
    {
        Viewing x;
        x.open(2);
        frmMessage *v = x.v();
        QVERIFY(v && v->isVisible());
        QVERIFY(v->txtMsgBody->toPlainText().startsWith(QStringLiteral("Some text")));
        QVERIFY(x.w.S.TransportError != 0);
        for (const char *c : {"menuDownload", "menuDownloadAll", "menuView", "menuGroup", "menuConnect", "menuPostC", "menuWebM"})
            QVERIFY2(!x.w.action(QLatin1String(c))->isEnabled(), c);
        v->close();
        for (const char *c : {"menuDownload", "menuDownloadAll", "menuView", "menuGroup", "menuConnect"})
            QVERIFY2(x.w.action(QLatin1String(c))->isEnabled(), c);
    }

    // The large preview is emptied by a disconnect; an emptied small preview stays empty when
    // the box is resized or double-clicked.
    void previewsStayClearedOnceCleared()
    {
        Viewing x;
        x.w.show();
        QVERIFY(QTest::qWaitForWindowActive(&x.w));
        const QString pic = x.dest.path() + QStringLiteral("/blue.bmp");
        QVERIFY(writeFile(pic, picture(Qt::blue)));
        x.w.action(QStringLiteral("menuPreviewL"))->trigger();
        QVERIFY(x.w.action(QStringLiteral("menuPreviewL"))->isChecked());
        x.w.savedFiles->AddSavedFile(pic);
        x.w.savedFiles->PreviewFile(pic);
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        frmMaxPrev *large = x.w.findChild<SavedFilesView *>()->largePreview();
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
        Viewing x;
        x.w.show();
        QVERIFY(QTest::qWaitForWindowActive(&x.w));
        ShowCounter shows;
        x.w.Picture1->installEventFilter(&shows);
        x.w.MSHResults->selectionModel()->select(x.w.grid->index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        x.w.downloader->DownloadSelected();
        QVERIFY2(QFile::exists(x.dest.path() + QStringLiteral("/red.bmp")), qPrintable(x.w.status(1) + " / " + x.w.status(2) + " / " + QString::fromLatin1(x.s.srv.commands.join(" "))));
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("red.bmp")});
        QVERIFY(!x.w.Picture1->pixmap().isNull());
        QCOMPARE(shows.shows, 1);
    }
};

QTEST_MAIN(TstWindowDialogs)
#include "tst_window_dialogs.moc"
