#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "news/Session.h"
#include "gui/options/frmSetup.h"
#include "servers/ServerList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolBar>
#include <QtTest>

namespace {
frmMain::Options quiet() { return frmMain::Options{true}; }

// The window with its setup dialog loaded and shown (not waited for).
struct Fixture {
    ScriptedPrompter p;
    frmMain w{&p, quiet()};
    frmSetup *d = nullptr;
    Fixture()
    {
        if (!w.setup)
            w.setup = new frmSetup(w.shell(), *w.servers, w.session, &w);
        d = w.setup;
    }
    void open() { d->openSetup(); }
    ItemList *list() { return w.servers->lstServs; }
    QStringList boxes() const { return {d->txtUserID->text(), d->txtPassword->text()}; }
    // Lists these servers (with their credentials), saves the list and opens the dialog.
    void openWith(const QList<QPair<QString, QString>> &servers)
    {
        for (const auto &[text, data] : servers)
            list()->add(text, data);
        w.servers->save();
        open();
    }
};

void leave(QLineEdit *box)
{
    QFocusEvent out(QEvent::FocusOut, Qt::TabFocusReason);
    QCoreApplication::sendEvent(box, &out);
}
} // namespace

class TstSetupDialog : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        QFile::remove(SettingsStore().fileName());
        QFile::remove(ServerList::listFile());
        QDir(nd::appFile(QStringLiteral("Download"))).removeRecursively();
    }

    void serverCountCaption()
    {
        Fixture f;
        f.openWith({{QStringLiteral("00734  OK    news.a.com"), QString()}});
        QCOMPARE(f.d->frameServers->title(), QStringLiteral("NNTP Servers (1)"));
        QCOMPARE(f.w.setupServerFrameCaption(), QStringLiteral("NNTP Servers (1)"));
        QCOMPARE(f.d->chkHTTP->text(), QStringLiteral("Save HTTP addreseses"));
        QCOMPARE(f.d->txtNew->text(), QStringLiteral("500"));
        // New through the toolbar refreshes the caption
        f.p.inputs = {QStringLiteral("news.b.com")};
        f.d->serverButton(QStringLiteral("New"))->trigger();
        QCOMPARE(f.d->frameServers->title(), QStringLiteral("NNTP Servers (2)"));
        f.d->cmdCancel_Click();
    }

    void clickFillsCredentialsAndLeavingStoresThem()
    {
        Fixture f;
        f.openWith({{QStringLiteral("00734  OK    news.a.com"), QStringLiteral("alice|||s3cret")},
                    {QStringLiteral("00100  OK    news.b.com"), QString()}});
        f.d->lstServs_Click(0);
        QCOMPARE(f.w.opt.NNTPServer, QStringLiteral("news.a.com"));
        QCOMPARE(f.boxes(), (QStringList{"alice", "s3cret"}));

        // clicking an item without credentials empties both boxes
        f.w.servers->makeCurrent(1);
        QCOMPARE(f.w.opt.NNTPServer, QStringLiteral("news.b.com"));
        QCOMPARE(f.boxes(), (QStringList{"", ""}));

        // typed credentials are kept once the box is left, and the item stays selected
        QTest::keyClicks(f.d->txtUserID, QStringLiteral("bob"));
        QCOMPARE(f.p.asked.size(), 0);
        f.d->txtPassword->setText(QStringLiteral("pa|ss"));
        emit f.d->txtPassword->editingFinished();
        QCOMPARE(f.list()->secondText(1), QStringLiteral("bob|||pa|ss"));
        QCOMPARE(f.w.S.ServerUserId, QStringLiteral("bob"));
        QCOMPARE(f.w.S.ServerPassword, QStringLiteral("pa|ss"));
        QVERIFY(f.list()->isSelected(1));

        // an edit not yet left is kept by OK, which also writes the file
        f.d->txtUserID->setText(QStringLiteral("carol"));
        f.d->txtUserID->setModified(true);
        f.d->cmdOK_Click();
        QVERIFY(!f.d->isVisible());
        ItemList file;
        QVERIFY(file.loadWithSecond(ServerList::listFile()));
        QCOMPARE(file.secondText(file.findServer(QStringLiteral("news.b.com"))), QStringLiteral("carol|||pa|ss"));

        // the next opening selects the current server and shows its credentials
        f.open();
        QCOMPARE(f.list()->currentIndex(), f.list()->findServer(QStringLiteral("news.b.com")));
        QCOMPARE(f.d->txtUserID->text(), QStringLiteral("carol"));
        f.d->cmdCancel_Click();
    }

    void credentialsWithoutSelectedServerAreRefused()
    {
        Fixture f;
        f.list()->add(QStringLiteral("00734  OK    news.a.com"));
        f.w.servers->save();
        f.w.opt.NNTPServer = QStringLiteral("not.in.list");
        f.open();
        QCOMPARE(f.list()->currentIndex(), -1);
        QTest::keyClicks(f.d->txtUserID, QStringLiteral("ab"));
        QCOMPARE(f.d->txtUserID->text(), QString());
        QVERIFY(!f.p.asked.isEmpty());
        QCOMPARE(f.p.asked[0].text, QStringLiteral("Please select server before entering ID and Password information"));
        QTest::keyClick(f.d->txtPassword, Qt::Key_X);
        emit f.d->txtUserID->editingFinished();
        emit f.d->txtPassword->editingFinished();
        QCOMPARE(f.list()->secondText(0), QString());
        QCOMPARE(f.w.S.ServerUserId, QString());
        QCOMPARE(f.p.asked.size(), 3);
    }

    void listKeys()
    {
        Fixture f;
        QList<QPair<QString, QString>> servers;
        for (const char *n : {"a.example", "b.example", "c.example", "d.example"})
            servers.append({ServerList::Unchecked + QLatin1String(n), QString()});
        f.openWith(servers);
        QTest::keyClick(f.d->lstServs, Qt::Key_End);
        QCOMPARE(f.list()->selectedIndexes(), QList<int>{3});
        QCOMPARE(f.w.opt.NNTPServer, QStringLiteral("a.example"));   // sorted descending: a is last
        QTest::keyClick(f.d->lstServs, Qt::Key_Home);
        QCOMPARE(f.list()->selectedIndexes(), QList<int>{0});
        QTest::keyClick(f.d->lstServs, Qt::Key_A, Qt::ControlModifier);
        QCOMPARE(f.list()->selectedCount(), 4);
        f.list()->clearSelection();
        f.list()->setSelected(1, true);
        QTest::keyClick(f.d->lstServs, Qt::Key_Delete);
        QCOMPARE(f.list()->count(), 3);
        // the neighbour of a deleted item does not silently become the current server
        QCOMPARE(f.list()->currentIndex(), -1);
        QCOMPARE(f.w.opt.NNTPServer, QStringLiteral("d.example"));
        QCOMPARE(f.d->frameServers->title(), QStringLiteral("NNTP Servers (3)"));
        // Enter closes as OK does: the deletion reaches the file
        QTest::keyClick(f.d->lstServs, Qt::Key_Return);
        QVERIFY(!f.d->isVisible());
        QCOMPARE(f.d->result(), int(QDialog::Accepted));
        ItemList file;
        QVERIFY(file.loadWithSecond(ServerList::listFile()));
        QCOMPARE(file.count(), 3);
    }

    void trayIsSavedAtOnceHttpOnlyByOk()
    {
        Fixture f;
        f.open();
        QVERIFY(!f.d->chkTray->isChecked());
        QVERIFY(f.d->chkHTTP->isChecked());
        f.d->chkTray->click();
        f.d->chkHTTP->click();
        f.d->chkWebSave->click();
        QCOMPARE(f.w.store().get(QStringLiteral("Tray")), QStringLiteral("1"));
        QCOMPARE(f.w.store().get(QStringLiteral("WEBSave")), QStringLiteral("0"));
        QCOMPARE(f.w.opt.WEBSave, false);
        f.d->cmdCancel_Click();
        QCOMPARE(f.w.store().get(QStringLiteral("Tray")), QStringLiteral("1"));
        QCOMPARE(f.w.opt.SaveHTTP, 1);
        QVERIFY(!f.w.store().contains(QStringLiteral("SaveHTTP")));

        // opened again: the values come from the store and the program, not from the last edit
        f.open();
        QVERIFY(f.d->chkTray->isChecked());
        QVERIFY(f.d->chkHTTP->isChecked());
        QVERIFY(!f.d->chkWebSave->isChecked());
        for (QCheckBox *box : {f.d->chkHTTP, f.d->chkBinary, f.d->chkShow})
            box->click();
        f.d->cmdOK_Click();
        QCOMPARE((QList<int>{f.w.opt.SaveHTTP, f.w.opt.BinariesOnly, f.w.opt.ShowMNumbers}), (QList<int>{0, 1, 1}));
        // the store gets them with the program's other settings, at shutdown
        QVERIFY(!f.w.store().contains(QStringLiteral("SaveHTTP")));
        f.w.SaveSettings();
        QCOMPARE(f.w.store().get(QStringLiteral("SaveHTTP")), QStringLiteral("0"));
    }

    void numberBoxesFilterAndCorrect()
    {
        Fixture f;
        f.open();
        // newest messages: digits only, saved on every change
        f.d->txtNew->clear();
        QTest::keyClicks(f.d->txtNew, QStringLiteral("1a2.-3"));
        QCOMPARE(f.d->txtNew->text(), QStringLiteral("123"));
        QCOMPARE(f.w.store().get(QStringLiteral("NewMsgs")), QStringLiteral("123"));
        QCOMPARE(f.w.opt.NewMsgs, 123);
        QTest::keyClick(f.d->txtNew, Qt::Key_Backspace);
        QCOMPARE(f.w.store().get(QStringLiteral("NewMsgs")), QStringLiteral("12"));

        // timeout and minimum groups take "." and "0".."K" as typed, nothing else
        f.d->txtTimeout->clear();
        QTest::keyClicks(f.d->txtTimeout, QStringLiteral("4-5 z1A"));
        QCOMPARE(f.d->txtTimeout->text(), QStringLiteral("451A"));
        // what the box holds once it is left
        auto left = [](QLineEdit *box, const char *typed) {
            box->setText(QLatin1String(typed));
            leave(box);
            return box->text();
        };
        QCOMPARE(left(f.d->txtTimeout, "45"), QStringLiteral("45"));
        for (const char *bad : {"1A", "", "32768", "0"})
            QCOMPARE(left(f.d->txtTimeout, bad), QStringLiteral("255"));
        QCOMPARE(left(f.d->txtTimeout, "32767"), QStringLiteral("32767"));
        QCOMPARE(left(f.d->txtMinGroups, "250000"), QStringLiteral("100000"));
        QCOMPARE(left(f.d->txtMinGroups, "100000"), QStringLiteral("100000"));

        // Enter in the minimum groups box is OK
        f.d->txtMinGroups->setText(QStringLiteral("40"));
        f.d->txtTimeout->setText(QStringLiteral("20"));
        QTest::keyClick(f.d->txtMinGroups, Qt::Key_Return);
        QVERIFY(!f.d->isVisible());
        QCOMPARE(f.w.opt.MinimumGroups, 40);
        QCOMPARE(f.w.opt.Timeout, 20);

        // OK corrects boxes that were never left
        f.open();
        f.d->txtTimeout->setText(QStringLiteral("99999"));
        f.d->txtMinGroups->setText(QStringLiteral("7777777"));
        f.d->cmdOK_Click();
        QCOMPARE(f.w.opt.Timeout, 255);
        QCOMPARE(f.w.opt.MinimumGroups, 100000);
    }

    void downloadDirectoryRules()
    {
        QTemporaryDir tmp;
        const QString base = QDir(tmp.path()).canonicalPath() + QStringLiteral("/files");
        QVERIFY(QDir().mkpath(base));
        Fixture f;
        f.w.store().save(QStringLiteral("DestDir"), base);
        f.open();
        QCOMPARE(f.d->dirPath(), base + QLatin1Char('/'));
        QCOMPARE(f.d->lblDir->text(), base + QLatin1Char('/'));
        QCOMPARE(f.w.opt.DestDir, base + QLatin1Char('/'));
        QVERIFY(QDir(nd::appFile(QStringLiteral("Download"))).exists());

        // Create Directory inside the current one; a second time it fails
        f.p.inputs = {QStringLiteral("pics"), QStringLiteral("pics")};
        f.d->cmdDir_Click();
        QCOMPARE(f.p.asked[0].text, QStringLiteral("Enter Directory Name:"));
        QCOMPARE(f.p.asked[0].title, QStringLiteral("Create Directory:"));
        QVERIFY(QDir(base + QStringLiteral("/pics")).exists());
        QVERIFY(!f.d->dirDialog->findItems(QStringLiteral("pics"), Qt::MatchExactly).isEmpty());
        f.d->cmdDir_Click();
        QCOMPARE(f.p.texts().last(), QStringLiteral("Could not create directory"));
        QCOMPARE(f.p.asked.last().icon, Prompter::Critical);

        // entering a directory makes it the download path, saved at once
        QListWidgetItem *pics = f.d->dirDialog->findItems(QStringLiteral("pics"), Qt::MatchExactly).value(0);
        emit f.d->dirDialog->itemActivated(pics);
        QCOMPARE(f.w.opt.DestDir, base + QStringLiteral("/pics/"));
        QCOMPARE(f.w.store().get(QStringLiteral("DestDir")), base + QStringLiteral("/pics/"));
        emit f.d->dirDialog->itemActivated(f.d->dirDialog->item(0));   // ".."
        QCOMPARE(f.w.opt.DestDir, base + QLatin1Char('/'));

        // Delete removes empty directories only
        QVERIFY(QDir().mkpath(base + QStringLiteral("/full/inner")));
        f.d->dirChange(base);
        f.d->dirDialog->setCurrentItem(f.d->dirDialog->findItems(QStringLiteral("full"), Qt::MatchExactly).value(0));
        f.p.clear();
        QTest::keyClick(f.d->dirDialog, Qt::Key_Delete);
        QVERIFY(QDir(base + QStringLiteral("/full")).exists());
        QCOMPARE(f.p.asked.size(), 1);
        f.d->dirDialog->setCurrentItem(f.d->dirDialog->findItems(QStringLiteral("pics"), Qt::MatchExactly).value(0));
        QTest::keyClick(f.d->dirDialog, Qt::Key_Delete);
        QVERIFY(!QDir(base + QStringLiteral("/pics")).exists());
        QVERIFY(f.d->dirDialog->findItems(QStringLiteral("pics"), Qt::MatchExactly).isEmpty());

        // the chooser: an unreadable choice is refused, a good one is taken with a "/"
        f.p.clear();
        f.p.files = {base + QStringLiteral("/no-such-dir"), base + QStringLiteral("/full")};
        f.d->chooseDirectory();
        QCOMPARE(f.p.texts().last(), QStringLiteral("Invalid Drive or Drive Unavailable."));
        QCOMPARE(f.p.asked.last().icon, Prompter::Critical);
        QCOMPARE(f.w.opt.DestDir, base + QLatin1Char('/'));
        f.d->chooseDirectory();
        QCOMPARE(f.w.opt.DestDir, base + QStringLiteral("/full/"));
        f.d->cmdCancel_Click();

        // an empty one becomes the default
        f.w.store().save(QStringLiteral("DestDir"), QString());
        f.open();
        const QString def = nd::appFile(QStringLiteral("Download")) + QLatin1Char('/');
        QCOMPARE(f.d->dirPath(), def);
        QCOMPARE(f.w.store().get(QStringLiteral("DestDir")), def);
        QVERIFY(QDir(def).exists());
        f.d->cmdCancel_Click();
    }

    void proxyBoxesReachTheSettingsOnOk()
    {
        Fixture f;
        auto type = [&f] {
            f.open();
            QCOMPARE(f.d->txtProxyPort->text(), QStringLiteral("1080"));
            f.d->txtProxyAddress->setText(QStringLiteral("127.0.0.1"));
            f.d->txtProxyPort->clear();
            QTest::keyClicks(f.d->txtProxyPort, QStringLiteral("9x050"));
        };
        type();
        f.d->cmdCancel_Click();
        QCOMPARE(f.w.opt.ProxyHost, QString());
        type();
        f.d->cmdOK_Click();
        QCOMPARE(f.w.opt.ProxyHost, QStringLiteral("127.0.0.1"));
        QCOMPARE(f.w.opt.ProxyPort, 9050);
        f.open();
        QCOMPARE(f.d->txtProxyAddress->text(), QStringLiteral("127.0.0.1"));
        QCOMPARE(f.d->txtProxyPort->text(), QStringLiteral("9050"));
        f.d->cmdCancel_Click();
    }

    void setupCommandRunsModallyWithSetupOff()
    {
        ScriptedPrompter p;
        frmMain w(&p, quiet());
        QAction *menu = w.action(QStringLiteral("menuSetup"));
        QVERIFY(menu->isEnabled());
        QVERIFY(w.toolButton(QStringLiteral("Setup"))->isEnabled());
        bool wasOff = false;
        bool shown = false;
        QTimer::singleShot(0, &w, [&] {
            shown = w.setup && w.setup->isVisible();
            wasOff = !menu->isEnabled();
            if (w.setup)
                w.setup->cmdCancel->click();
        });
        w.toolbarClick(QStringLiteral("Setup"));
        QVERIFY(shown);
        QVERIFY(wasOff);
        QVERIFY(menu->isEnabled());
        QVERIFY(!w.setup->isVisible());
    }

    void doubleClickClosesAndConnects()
    {
        // a port with nobody behind it: the connect fails at once
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost, 0));
        const QString server = QStringLiteral("127.0.0.1:%1").arg(closed.serverPort());
        closed.close();
        Fixture f;
        f.p.answers = {Prompter::AnswerOk};
        f.openWith({{ServerList::Unchecked + server, QString()}, {QStringLiteral("00001  OK    other.example"), QString()}});
        const int row = f.list()->findServer(server);
        f.d->lstServs_DblClick(row);
        QVERIFY(!f.d->isVisible());
        QCOMPARE(f.w.opt.NNTPServer, server);
        QTRY_VERIFY(f.w.status(2).startsWith(QStringLiteral("Unable to Connect - ")));
    }
};

QTEST_MAIN(TstSetupDialog)
#include "tst_setupdialog.moc"
