#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "groups/Favorites.h"
#include "settings/SettingsStore.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QFile>
#include <QIcon>
#include <QLabel>
#include <QListView>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString mk(char digit, const QString &text) { return ItemList::marked(QLatin1Char(digit), text); }

using testfile::lines;

struct Window {
    ScriptedPrompter p;
    std::unique_ptr<frmMain> w;
    explicit Window(const QStringList &favorites = {})
    {
        QFile::remove(SettingsStore().fileName());
        {
            SettingsStore st;
            st.save(QStringLiteral("NNTPServer"), QStringLiteral("news1"));
            st.sync();
        }
        if (!favorites.isEmpty()) {
            ItemList l;
            l.addMany(favorites);
            l.save(nd::appFile(QStringLiteral("NewsdredgeFavorites.fav")));
        } else {
            QFile::remove(nd::appFile(QStringLiteral("NewsdredgeFavorites.fav")));
        }
        w = std::make_unique<frmMain>(&p, frmMain::Options{true});
        w->startUp();
    }
    ItemList *fav() { return w->lstFavorites; }
    QString file() { return w->opt.FavoritesFile; }
    bool hasIcon(int row) { return !fav()->data(fav()->index(row), Qt::DecorationRole).value<QIcon>().isNull(); }
    QString caption() { return w->lblFav->text(); }
};

} // namespace

class TstFavorites : public QObject {
    Q_OBJECT
private slots:
    void startUpLoadsTheFileWithIcons()
    {
        Window x({mk('1', "alt.a (news1) (3)"), "alt.b (news2)"});
        QCOMPARE(x.fav()->count(), 2);
        QVERIFY(x.hasIcon(0) && x.hasIcon(1));
        QCOMPARE(x.caption(), QStringLiteral("  Favorite Groups [NewsdredgeFavorites] (2)"));
    }

    void dropWithAndWithoutCount()
    {
        Window x;
        QVERIFY(x.w->favorites->DropGroup(mk('1', "alt.binaries.test (37)")));
        QVERIFY(x.w->favorites->DropGroup("alt.empty (0)"));
        const QStringList expect = {mk('1', "alt.binaries.test (news1) (37)"), mk('4', "alt.empty (news1)")};
        QCOMPARE(x.fav()->texts(), expect);
        QVERIFY(x.hasIcon(1));
        // written at once
        QCOMPARE(lines(x.file()), expect);
        QCOMPARE(x.caption(), QStringLiteral("  Favorite Groups [NewsdredgeFavorites] (2)"));
        // the same group from the same server again: nothing added, even with another count
        QVERIFY(!x.w->favorites->DropGroup(mk('1', "alt.binaries.test (99)")));
        QCOMPARE(x.fav()->count(), 2);
        // from another server it is a new favourite
        x.w->opt.NNTPServer = QStringLiteral("news2");
        QVERIFY(x.w->favorites->DropGroup(mk('1', "alt.binaries.test (99)")));
        QCOMPARE(x.fav()->text(2), mk('1', "alt.binaries.test (news2) (99)"));
    }

    void newAsksAndEmptiesTheList()
    {
        Window x({"alt.a (news1)", "alt.b (news1)"});
        QTemporaryDir d;
        const QString other = d.filePath(QStringLiteral("Work.list.fav"));
        QVERIFY(testfile::writeFile(other, "old content\n"));

        // New with this file chosen and these answers to its questions
        auto newList = [&x](const QString &file, const QList<Prompter::Answer> &answers) {
            x.p.clear();
            x.p.files = {file};
            x.p.answers = answers;
            x.w->action("menuNew")->trigger();
        };
        // No keeps everything as it was
        newList(other, {Prompter::AnswerNo});
        QVERIFY(x.p.wasAsked("OverWrite Existing File?"));
        QCOMPARE(x.fav()->count(), 2);
        QCOMPARE(lines(other), QStringList{"old content"});

        newList(other, {Prompter::AnswerYes});
        QCOMPARE(x.p.asked.last().buttons, Prompter::YesNo);
        QCOMPARE(x.fav()->count(), 0);
        QCOMPARE(QFileInfo(other).size(), 0);
        QCOMPARE(x.file(), other);
        QCOMPARE(x.caption(), QStringLiteral("  Favorite Groups [Work] (0)"));
        // the old default file still holds the old favourites
        QCOMPARE(lines(nd::appFile("NewsdredgeFavorites.fav")).size(), 2);

        // a cancelled dialog does nothing
        newList(QString(), {});
        QCOMPARE(x.file(), other);
        QCOMPARE(x.p.asked.size(), 1);
    }

    void loadFirstSavesTheCurrentList()
    {
        Window x({"alt.a (news1)"});
        const QString first = x.file();
        QTemporaryDir d;
        const QString second = d.filePath(QStringLiteral("second.fav"));
        {
            ItemList l;
            l.addMany({mk('1', "alt.z (news9) (5)"), "alt.y (news9)"});
            QVERIFY(l.save(second));
        }
        // a change not yet written
        x.fav()->add(QStringLiteral("alt.unsaved (news1)"));

        // a file that does not exist changes nothing
        x.p.files = {d.filePath(QStringLiteral("missing.fav"))};
        x.w->action("menuLoad")->trigger();
        QCOMPARE(x.file(), first);
        QCOMPARE(lines(first), QStringList{"alt.a (news1)"});

        x.p.files = {second};
        x.w->action("menuLoad")->trigger();
        QCOMPARE(lines(first), (QStringList{"alt.a (news1)", "alt.unsaved (news1)"}));
        QCOMPARE(x.fav()->texts(), (QStringList{mk('1', "alt.z (news9) (5)"), "alt.y (news9)"}));
        QVERIFY(x.hasIcon(0));
        QCOMPARE(x.file(), second);
        QCOMPARE(x.caption(), QStringLiteral("  Favorite Groups [second] (2)"));
    }

    void markedItemsSurviveSaveAndLoad()
    {
        const QStringList items = {mk('1', "alt.a (news1) (37)"), mk('2', "alt.b (news1)"), mk('4', "alt.c (n\u00e9ws)"),
                                   "alt.d (news2)"};
        Window x(items);
        QCOMPARE(x.fav()->texts(), items);
        QTemporaryDir d;
        const QString path = d.filePath(QStringLiteral("copy.fav"));
        x.p.files = {path};
        x.w->action("menuSave")->trigger();
        QCOMPARE(x.p.asked.size(), 1);   // a new file: no overwrite question
        QCOMPARE(x.file(), path);
        ItemList back;
        QVERIFY(back.load(path));
        QCOMPARE(back.texts(), items);
    }

    void deleteKeyAndSelectAll()
    {
        Window x({"alt.a (s)", "alt.b (s)", "alt.c (s)", "alt.d (s)"});
        QListView *v = x.w->lstFavoritesView;
        QTest::keyClick(v, Qt::Key_A, Qt::ControlModifier);
        QCOMPARE(x.fav()->selectedCount(), 4);
        x.fav()->clearSelection();
        x.fav()->setSelected(1, true);
        x.fav()->setSelected(2, true);
        QTest::keyClick(v, Qt::Key_Delete);
        QCOMPARE(x.fav()->texts(), (QStringList{"alt.a (s)", "alt.d (s)"}));
        QCOMPARE(lines(x.file()), (QStringList{"alt.a (s)", "alt.d (s)"}));
        QCOMPARE(x.fav()->selectedCount(), 1);
        QCOMPARE(x.fav()->currentIndex(), 1);
        QVERIFY(v->isEnabled());
        QCOMPARE(x.caption(), QStringLiteral("  Favorite Groups [NewsdredgeFavorites] (2)"));
    }

    void borrowedListIsNeverWritten()
    {
        Window x({"alt.a (s)", "alt.b (s)"});
        // another run holds servers in the list
        x.w->S.ScanMode = true;
        x.fav()->clear();
        x.fav()->addMany({"             news.one", "             news.two"});
        x.fav()->setSelected(0, true);
        QTest::keyClick(x.w->lstFavoritesView, Qt::Key_Delete);
        QVERIFY(!x.w->favorites->DropGroup("alt.c (3)"));
        QCOMPARE(lines(x.file()), (QStringList{"alt.a (s)", "alt.b (s)"}));
        x.w->SaveSettings();
        QCOMPARE(lines(x.file()), (QStringList{"alt.a (s)", "alt.b (s)"}));
    }

    void listingRewritesTheFavoriteOfTheCurrentServer()
    {
        Window x({"alt.a (news1)", mk('4', "alt.a (news2)"), mk('1', "alt.b (news1) (4)")});
        x.w->favorites->updateFavoriteMarker(QStringLiteral(" alt.a "), 12, false);
        QCOMPARE(x.fav()->text(0), mk('1', "alt.a (news1) (12)"));
        QCOMPARE(x.fav()->text(1), mk('4', "alt.a (news2)"));
        x.w->favorites->updateFavoriteMarker(QStringLiteral("alt.b"), 5, true);   // an error wins over a count
        QCOMPARE(x.fav()->text(2), mk('2', "alt.b (news1)"));
        x.w->favorites->updateFavoriteMarker(QStringLiteral("alt.b"), 0, false);
        QCOMPARE(x.fav()->text(2), mk('4', "alt.b (news1)"));
    }
};

QTEST_MAIN(TstFavorites)
#include "tst_favorites.moc"
