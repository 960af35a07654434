// Real file dialogs, not scripted answers: the dialogs the commands open (Qt's own dialog,
// offscreen) and what they list.
#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "groups/Favorites.h"
#include "harvest/Harvester.h"
#include "servers/ServerList.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "gui/ui/GuiPrompter.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QListView>
#include <QTimer>
#include <QtTest>

namespace {

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

// Each command's file dialog lists the files its filter names: the command, its filter,
// whether its dialog opens in the application directory.
struct Command {
    const char *name, *pattern;
    bool inAppDir;
    std::function<void(frmMain &)> run;
};
const std::vector<Command> &commands()
{
    static const std::vector<Command> all = {
        {"import server addresses", "*.txt", true, [](frmMain &w) { w.servers->menuImport(); }},
        {"export server addresses", "*.txt", true, [](frmMain &w) { w.servers->menuExport(); }},
        {"load favorites", "*.fav", false, [](frmMain &w) { w.favorites->LoadFavorites(); }},
        {"save favorites", "*.fav", false, [](frmMain &w) { w.favorites->SaveFavoritesAs(false); }},
        {"harvest output file", "*.txt", false, [](frmMain &w) { QVERIFY(!w.harvester->AskOutputFile()); }},
        {"generate group list", "*.txt", true, [](frmMain &w) {
             w.servers->lstServs->add(ServerList::Unchecked + QStringLiteral("127.0.0.1:1"));
             w.servers->lstServs->setSelected(0, true);
             w.action(QStringLiteral("menuGen"))->trigger();
         }}};
    return all;
}

} // namespace

class TstWindowDialogs : public QObject {
    Q_OBJECT

private slots:
    void init() { QFile::remove(SettingsStore().fileName()); }

    void fileDialogsListTheUsersFiles_data()
    {
        QTest::addColumn<int>("command");
        for (int i = 0; i < int(commands().size()); ++i)
            QTest::newRow(commands()[size_t(i)].name) << i;
    }

    void fileDialogsListTheUsersFiles()
    {
        QFETCH(int, command);
        const Command &c = commands()[size_t(command)];
        GuiPrompter p;
        p.setFileDialogOptions(int(QFileDialog::DontUseNativeDialog));
        frmMain w(&p, frmMain::Options{true});
        // the folder each dialog opens in holds files of every kind and a sub-folder
        QTemporaryDir tmp;
        const QString dir = c.inAppDir ? nd::appDir() : tmp.path();
        QDir().mkpath(dir + QStringLiteral("/sub"));
        const QStringList names = {"servers.txt", "notes.TXT", "mine.fav", "other.fav", "picture.jpg", "data.dat"};
        for (const QString &n : names)
            QVERIFY(testfile::writeFile(dir + QLatin1Char('/') + n, "news.example.org\n"));
        w.opt.FavoritesFile = tmp.path() + QStringLiteral("/mine.fav");
        w.S.OutputFileName = tmp.path() + QStringLiteral("/out.txt");

        QStringList expected = QDir(dir).entryList({QLatin1String(c.pattern)}, QDir::Files);
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
        c.run(w);
        poll.stop();
        QVERIFY(seen);
        QCOMPARE(listed, expected);
        for (const QString &n : names)
            QFile::remove(dir + QLatin1Char('/') + n);
    }

    void qtFiltersFromPairs()
    {
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Text (*.txt)|*.txt")), QStringLiteral("Text (*.txt)"));
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Pictures|*.jpg;*.gif|All Files (*.*)|*.*")),
                 QStringLiteral("Pictures (*.jpg *.gif);;All Files (*.*)"));
        QCOMPARE(Prompter::qtFileFilter(QStringLiteral("Text (*.txt)")), QStringLiteral("Text (*.txt)"));
    }
};

QTEST_MAIN(TstWindowDialogs)
#include "tst_window_dialogs.moc"
