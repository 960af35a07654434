// The saved-files list, its icons, the preview box and the large preview window.
#include "gui/app/frmMain.h"
#include "download/Downloader.h"
#include "download/SavedFiles.h"
#include "gui/download/SavedFilesView.h"
#include "gui/download/frmMaxPrev.h"
#include "gui/ui/ListLook.h"
#include "ui/ItemList.h"
#include "gui/ui/PictureBox.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QGroupBox>
#include <QLabel>
#include <QListView>
#include <QtTest>

namespace {

// The icon a view of the list draws for an entry.
QIcon shownIcon(ItemList *list, int row)
{
    return list->data(list->index(row), Qt::DecorationRole).value<QIcon>();
}

QIcon iconForFile(const QString &name)
{
    return nd::gui::iconForKey(SavedFiles::iconKeyFor(name));
}

void writePicture(const QString &path, QColor color, QSize size = QSize(40, 30))
{
    QImage img(size, QImage::Format_RGB32);
    img.fill(color);
    QVERIFY(img.save(path, "BMP"));
}

} // namespace

class TstSavedFiles : public QObject {
    Q_OBJECT

    struct Fixture {
        ScriptedPrompter p;
        frmMain w{&p, frmMain::Options{true}};
        QTemporaryDir dest;
        SavedFiles *sf = nullptr;
        SavedFilesView *sv = nullptr;
        Fixture()
        {
            w.opt.DestDir = dest.path() + QLatin1Char('/');
            sf = w.savedFiles;
            sv = w.findChild<SavedFilesView *>();
        }
        QString path(const QString &name) const { return dest.path() + QLatin1Char('/') + name; }
        void add(const QString &name, QColor c = Qt::red)
        {
            writePicture(path(name), c);
            sf->AddSavedFile(path(name));
        }
        void add(const QStringList &names)
        {
            for (const QString &n : names)
                add(n);
        }
        bool exists(const QString &name) const { return QFile::exists(path(name)); }
        void select(const QList<int> &rows)
        {
            w.lstFiles->clearSelection();
            for (int r : rows)
                w.lstFiles->setSelected(r, true);
            if (!rows.isEmpty())
                w.lstFiles->setCurrentIndex(rows.first());
        }
        void click(int row)
        {
            w.lstFiles->clearSelection();
            w.lstFiles->setCurrentIndex(row);
            w.lstFiles->setSelected(row, true);
            sf->ClickEntry();
        }
        bool previewShows() const { return !w.Picture1->pixmap().isNull(); }
        // Removes these rows, answering the questions asked with these answers.
        void remove(const QList<int> &rows, const QList<Prompter::Answer> &answers = {})
        {
            select(rows);
            p.answers = answers;
            sf->RemoveSelected();
        }
    };

private slots:
    void init() { QFile::remove(SettingsStore().fileName()); }

    void pictureNames()
    {
        // any case, anywhere in the name
        for (const char *n : {"photo.Jpg", "IMAGE.JPEG.ZIP", "123456.tmp", "/d/~image2.tmp", "a.gif", "a.bmp", "a.pcx", "a.wma"})
            QVERIFY2(SavedFiles::IsImageFile(QLatin1String(n)), n);
        for (const char *n : {"a.png", "movie.avi", "jpg"})
            QVERIFY2(!SavedFiles::IsImageFile(QLatin1String(n)), n);
    }

    void addingListsEachNameOnceWithAnIcon()
    {
        Fixture x;
        x.sf->AddSavedFile(x.path(QStringLiteral("a.zip")));
        x.sf->AddSavedFile(QStringLiteral("a.zip"));
        x.sf->AddSavedFile(x.path(QStringLiteral("b.jpg")));
        QCOMPARE(x.w.lstFiles->texts(), (QStringList{"a.zip", "b.jpg"}));
        QCOMPARE(x.w.frameFiles->title(), QStringLiteral("Saved Files (2)"));
        QVERIFY(!shownIcon(x.w.lstFiles, 0).isNull());
        QVERIFY(!shownIcon(x.w.lstFiles, 1).isNull());

        // a decoded file reported by the downloader gets its icon (the downloader lists it bare)
        writePicture(x.path(QStringLiteral("c.bmp")), Qt::blue);
        x.w.lstFiles->add(QStringLiteral("c.bmp"));
        emit x.w.downloader->fileSaved(x.path(QStringLiteral("c.bmp")));
        QCOMPARE(x.w.lstFiles->count(), 3);
        QVERIFY(!shownIcon(x.w.lstFiles, 2).isNull());
        QCOMPARE(x.sv->previewPath(), x.path(QStringLiteral("c.bmp")));   // and it is previewed
    }

    void iconsByMimeTypeWithTheHtmlFallback()
    {
        const QStringList jpg = SavedFiles::iconNamesFor(QStringLiteral("x.jpg"));
        QCOMPARE(jpg.first(), QStringLiteral("image-jpeg"));
        QVERIFY(jpg.contains(QStringLiteral("image-x-generic")));
        QCOMPARE(jpg.last(), QStringLiteral("text-html"));
        // the whole name counts, so a double extension takes the type of its last part
        QCOMPARE(SavedFiles::iconNamesFor(QStringLiteral("IMAGE.JPEG.ZIP")).first(), QStringLiteral("application-zip"));

        if (!QDir(QStringLiteral("/usr/share/icons/Adwaita")).exists())
            QSKIP("no icon theme installed");
        // the offscreen platform has no desktop theme: point the lookup at the installed one
        const QString before = QIcon::themeName();
        QIcon::setThemeSearchPaths(QIcon::themeSearchPaths() << QStringLiteral("/usr/share/icons"));
        QIcon::setThemeName(QStringLiteral("Adwaita"));
        QCOMPARE(iconForFile(QStringLiteral("x.jpg")).name(), QStringLiteral("image-x-generic"));
        QCOMPARE(iconForFile(QStringLiteral("page.html")).name(), QStringLiteral("text-html"));
        // a type the theme has no icon for gets the text/html one: a theme holding only that icon
        QTemporaryDir themes;
        QVERIFY(QDir(themes.path()).mkpath(QStringLiteral("NdOnlyHtml/16x16/mimetypes")));
        QFile index(themes.path() + QStringLiteral("/NdOnlyHtml/index.theme"));
        QVERIFY(index.open(QIODevice::WriteOnly));
        index.write("[Icon Theme]\nName=NdOnlyHtml\nDirectories=16x16/mimetypes\n\n[16x16/mimetypes]\nSize=16\nType=Fixed\n");
        index.close();
        QImage html(16, 16, QImage::Format_ARGB32);
        html.fill(Qt::darkBlue);
        QVERIFY(html.save(themes.path() + QStringLiteral("/NdOnlyHtml/16x16/mimetypes/text-html.png")));
        QIcon::setThemeSearchPaths(QIcon::themeSearchPaths() << themes.path());
        QIcon::setThemeName(QStringLiteral("NdOnlyHtml"));
        QCOMPARE(iconForFile(QStringLiteral("x.jpg")).name(), QStringLiteral("text-html"));
        QCOMPARE(iconForFile(QStringLiteral("data.qqzzy")).name(), QStringLiteral("text-html"));
        QIcon::setThemeName(before);
    }

    void previewOnAndOff()
    {
        Fixture x;
        QAction *preview = x.w.action(QStringLiteral("menuPreview"));
        QAction *large = x.w.action(QStringLiteral("menuPreviewL"));
        QVERIFY(preview->isChecked());
        QVERIFY(large->isCheckable() && large->isEnabled());
        QCOMPARE(x.sv->framePreview()->title(), QStringLiteral("Image Preview"));
        x.add(QStringLiteral("a.bmp"));
        x.sf->AddSavedFile(QStringLiteral("notes.txt"));

        x.click(0);
        QVERIFY(x.previewShows());
        QCOMPARE(x.sv->previewPath(), x.path(QStringLiteral("a.bmp")));

        preview->trigger();   // off
        QVERIFY(!preview->isChecked());
        QCOMPARE(x.w.opt.Preview, 0);
        QCOMPARE(x.sv->framePreview()->title(), QStringLiteral("*Image Preview"));
        QVERIFY(!x.previewShows());
        QVERIFY(!large->isEnabled());
        x.click(0);
        QVERIFY(!x.previewShows());     // a click shows nothing now
        x.sf->PreviewFile(x.path(QStringLiteral("a.bmp")));
        QVERIFY(!x.previewShows());     // nor does an incoming picture

        preview->trigger();   // on again
        QCOMPARE(x.w.opt.Preview, 1);
        QCOMPARE(x.sv->framePreview()->title(), QStringLiteral("Image Preview"));
        QVERIFY(large->isEnabled());
        x.click(1);                     // not a picture: the box keeps what it had (nothing)
        QVERIFY(!x.previewShows());
        x.sf->PreviewFile(x.path(QStringLiteral("a.bmp")));
        QVERIFY(x.previewShows());
    }

    void previewStateFollowsTheStoredSetting()
    {
        SettingsStore().save(QStringLiteral("Preview"), QStringLiteral("0"));
        ScriptedPrompter p;
        p.answers = {Prompter::AnswerOk, Prompter::AnswerNo};   // the first-run questions
        frmMain w(&p, frmMain::Options{true});
        w.startUp();
        QVERIFY(!w.action(QStringLiteral("menuPreview"))->isChecked());
        QVERIFY(!w.action(QStringLiteral("menuPreviewL"))->isEnabled());
        QCOMPARE(w.findChild<SavedFilesView *>()->framePreview()->title(), QStringLiteral("*Image Preview"));
    }

    void removeAsksOnlyWhenConfirmationIsOn()
    {
        Fixture x;
        x.add(QStringList{"a.bmp", "b.bmp", "c.bmp"});
        x.w.opt.ConfirmFileDelete = 1;

        x.remove({0}, {Prompter::AnswerNo});
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Delete a.bmp ?")});
        QCOMPARE(x.p.asked[0].buttons, Prompter::YesNoCancel);
        QCOMPARE(x.p.asked[0].title, QStringLiteral("Newsdredge!"));
        QCOMPARE(x.w.lstFiles->count(), 3);
        QVERIFY(x.exists(QStringLiteral("a.bmp")));

        x.p.clear();
        x.remove({0, 2}, {Prompter::AnswerNo});
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Delete all selected files?")});
        QCOMPARE(x.w.lstFiles->count(), 3);
        x.remove({0, 2}, {Prompter::AnswerCancel});
        QCOMPARE(x.w.lstFiles->count(), 3);

        x.click(0);   // the previewed picture goes with its entry
        QVERIFY(x.previewShows());
        x.remove({0, 2}, {Prompter::AnswerYes});
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("b.bmp")});
        QCOMPARE((QList<bool>{x.exists("a.bmp"), x.exists("b.bmp"), x.exists("c.bmp")}), (QList<bool>{false, true, false}));
        QCOMPARE(x.w.frameFiles->title(), QStringLiteral("Saved Files (1)"));
        QVERIFY(!x.previewShows());

        // without confirmation: no question, the file goes at once
        x.p.clear();
        x.w.opt.ConfirmFileDelete = 0;
        x.remove({0});
        QVERIFY(x.p.asked.isEmpty());
        QCOMPARE(x.w.lstFiles->count(), 0);
        QVERIFY(!x.exists(QStringLiteral("b.bmp")));

        // nothing selected: nothing happens
        x.sf->AddSavedFile(QStringLiteral("gone.bmp"));
        x.remove({});
        QCOMPARE(x.w.lstFiles->count(), 1);
        // an entry whose file is already gone is simply removed
        x.remove({0});
        QCOMPARE(x.w.lstFiles->count(), 0);
        QVERIFY(x.p.asked.isEmpty());
    }

    void aFailedRemovalIsReportedAndTheOthersGoOn()
    {
        Fixture x;
        x.w.opt.ConfirmFileDelete = 0;
        // a directory under a file's name cannot be removed as a file
        QVERIFY(QDir(x.dest.path()).mkdir(QStringLiteral("stuck.jpg")));
        QVERIFY(QFile(x.path(QStringLiteral("stuck.jpg/inside"))).open(QIODevice::WriteOnly));
        x.sf->AddSavedFile(QStringLiteral("stuck.jpg"));
        x.add(QStringLiteral("fine.bmp"));
        x.remove({0, 1});
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Unable to Delete File : stuck.jpg !")});
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("stuck.jpg")});
        QVERIFY(!x.exists(QStringLiteral("fine.bmp")));
    }

    void keysOfTheList()
    {
        Fixture x;
        x.w.opt.ConfirmFileDelete = 0;
        x.add(QStringList{"a.bmp", "b.bmp"});
        QListView *view = x.w.lstFilesView;
        x.w.lstFiles->clearSelection();
        QTest::keyClick(view, Qt::Key_A, Qt::ControlModifier);
        QCOMPARE(x.w.lstFiles->selectedCount(), 2);
        x.w.lstFiles->clearSelection();
        x.w.lstFiles->setCurrentIndex(1);
        x.w.lstFiles->clearSelection();
        QTest::keyClick(view, Qt::Key_Space);
        QCOMPARE(x.w.lstFiles->selectedIndexes(), QList<int>{1});
        QTest::keyClick(view, Qt::Key_Delete);
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("a.bmp")});
    }

    void openNeedsASelectionAndAnExistingFile()
    {
        Fixture x;
        x.sf->AddSavedFile(QStringLiteral("missing.zip"));
        x.w.lstFiles->clearSelection();
        // what an open says: nothing selected, the file missing, the same in quiet mode
        QStringList said;
        for (const char *step : {"none", "selected", "quiet"}) {
            x.select(qstrcmp(step, "none") ? QList<int>{0} : QList<int>{});
            x.w.S.QuietMode = !qstrcmp(step, "quiet");
            x.p.clear();
            x.sf->OpenSelected();
            said << x.p.texts().join(QLatin1Char('|'));
        }
        QCOMPARE(said, (QStringList{"Please Select Item(s) First", "Error Executing Application or File Not Found", ""}));
    }

    void largePreviewSteppingAndGeometry()
    {
        Fixture x;
        x.add(QStringLiteral("a.bmp"), Qt::red);
        x.add(QStringLiteral("b.bmp"), Qt::green);
        x.add(QStringLiteral("c.bmp"), Qt::blue);
        QAction *large = x.w.action(QStringLiteral("menuPreviewL"));
        x.click(0);
        QVERIFY(!x.sv->largePreview());
        large->trigger();   // checked: the previewed picture opens large
        QVERIFY(large->isChecked());
        frmMaxPrev *lp = x.sv->largePreview();
        QVERIFY(lp && lp->isVisible());
        QCOMPARE(lp->windowTitle(), QStringLiteral("Preview (a.bmp)"));
        QCOMPARE(lp->picturePath(), x.path(QStringLiteral("a.bmp")));

        // each step: the title, the picture and the list's current entry follow
        auto step = [&](int key, const char *name, int row, QColor color) {
            lp->SetlPicture(key);
            return lp->windowTitle() == QStringLiteral("Preview (%1)").arg(QLatin1String(name))
                && lp->picture()->image().pixelColor(1, 1) == color && x.w.lstFiles->currentIndex() == row
                && x.w.lstFiles->selectedIndexes() == QList<int>{row};
        };
        QCOMPARE(lp->picture()->image().pixelColor(1, 1), QColor(Qt::red));
        QVERIFY(step(40, "b.bmp", 1, Qt::green));
        QCOMPARE(x.sv->previewPath(), x.path(QStringLiteral("b.bmp")));   // the small box follows
        QVERIFY(step(34, "c.bmp", 2, Qt::blue));
        QVERIFY(step(40, "c.bmp", 2, Qt::blue));   // beyond the last entry: nothing changes
        QVERIFY(step(38, "b.bmp", 1, Qt::green));
        QVERIFY(step(33, "a.bmp", 0, Qt::red));
        QVERIFY(step(38, "a.bmp", 0, Qt::red));    // before the first entry: nothing changes
        // the keyboard over the picture does the same
        QTest::keyClick(lp->picture(), Qt::Key_Down);
        QCOMPARE(lp->windowTitle(), QStringLiteral("Preview (b.bmp)"));
        QTest::keyClick(lp->picture(), Qt::Key_PageUp);
        QCOMPARE(lp->windowTitle(), QStringLiteral("Preview (a.bmp)"));

        // the picture follows the window's size
        lp->resize(300, 200);
        QTest::qWait(1);
        const QPixmap pm = lp->picture()->pixmap();
        QVERIFY(pm.width() <= lp->picture()->contentsRect().width() && pm.height() <= lp->picture()->contentsRect().height());
        QVERIFY(pm.width() > 40);   // the large preview scales a small picture up to fill the window

        // closing unchecks the command and keeps the place
        lp->setGeometry(50, 60, 320, 240);
        lp->close();
        QVERIFY(!large->isChecked());
        QCOMPARE(x.w.store().getDouble(QStringLiteral("PWidth"), -1), 320 * 15.0);   // in twips
        // a new window comes back at the stored place
        frmMaxPrev again(x.w);
        again.restoreStoredGeometry();
        QCOMPARE(again.geometry(), QRect(50, 60, 320, 240));
        // and a place off the screen is pulled back onto it
        x.w.store().save(QStringLiteral("PLeft"), QStringLiteral("9000000"));
        again.restoreStoredGeometry();
        QVERIFY(again.geometry().right() <= QGuiApplication::primaryScreen()->availableGeometry().right());
    }

    void largePreviewClosesWithPreviewOffAndOpensFromTheBox()
    {
        Fixture x;
        x.add(QStringLiteral("a.bmp"));
        x.click(0);
        QTest::mouseDClick(x.w.Picture1, Qt::LeftButton);
        QAction *large = x.w.action(QStringLiteral("menuPreviewL"));
        QVERIFY(large->isChecked());
        QVERIFY(x.sv->largePreview() && x.sv->largePreview()->isVisible());
        x.w.action(QStringLiteral("menuPreview"))->trigger();   // preview off closes it
        QVERIFY(!x.sv->largePreview()->isVisible());
        QVERIFY(!large->isChecked());
        // with preview off a double-click on the box opens nothing
        QTest::mouseDClick(x.w.Picture1, Qt::LeftButton);
        QVERIFY(!large->isChecked());
    }

    void deleteKeyInTheLargePreviewRemovesTheEntry()
    {
        Fixture x;
        x.w.opt.ConfirmFileDelete = 1;
        x.add(QStringList{"a.bmp", "b.bmp"});
        x.w.action(QStringLiteral("menuPreviewL"))->trigger();
        x.click(1);
        frmMaxPrev *lp = x.sv->largePreview();
        QVERIFY(lp);
        x.p.answers = {Prompter::AnswerYes};
        lp->SetlPicture(46);
        QCOMPARE(x.p.texts(), QStringList{QStringLiteral("Delete b.bmp ?")});
        QCOMPARE(x.w.lstFiles->texts(), QStringList{QStringLiteral("a.bmp")});
        QVERIFY(!lp->isVisible());   // its picture is gone
    }
};

QTEST_MAIN(TstSavedFiles)
#include "tst_savedfiles.moc"
