#include "download/SavedFiles.h"

#include "app/Paths.h"
#include "app/Shell.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>

namespace {
const QString HtmlIcon = QStringLiteral("text-html");
} // namespace

SavedFiles::SavedFiles(Shell &shell, ItemList &list, QObject *parent)
    : QObject(parent), sh(shell), files(list)
{
}

QString SavedFiles::destDir() const
{
    return nd::withTrailingSlash(sh.opt.DestDir);
}

bool SavedFiles::IsImageFile(const QString &text)
{
    // the caller's text is left as it is; only a copy is upper-cased
    const QString up = text.toUpper();
    static const char *const exts[] = {".GIF", ".TMP", ".JPG", ".JPEG", ".PCX", ".WMA", ".BMP"};
    for (const char *e : exts)
        if (up.contains(QLatin1String(e)))
            return true;
    return false;
}

// ------------------------------------------------------------------ icons

QStringList SavedFiles::iconNamesFor(const QString &fileName)
{
    static QMimeDatabase db;
    const QMimeType t = db.mimeTypeForFile(fileName, QMimeDatabase::MatchExtension);
    QStringList names;
    for (const QString &n : {t.iconName(), t.genericIconName()})
        if (!n.isEmpty() && !names.contains(n))
            names << n;
    if (!names.contains(HtmlIcon))
        names << HtmlIcon;
    return names;
}

QString SavedFiles::iconKeyFor(const QString &fileName)
{
    return iconNamesFor(fileName).join(QLatin1Char('|'));
}

// ------------------------------------------------------------------ the list

void SavedFiles::AddSavedFile(const QString &path)
{
    const QString name = path.contains(QLatin1Char('/')) ? QFileInfo(path).fileName() : path;
    if (name.isEmpty())
        return;
    int at = files.find(name);
    if (at < 0)
        at = files.add(name);
    if (files.iconKey(at).isEmpty())
        files.setIconKey(at, iconKeyFor(name));
    sh.UpdateCaption(nd::Caption::SavedFiles);
}

void SavedFiles::ClickEntry()
{
    const int cur = files.currentIndex();
    if (cur < 0)
        return;
    const QString text = files.text(cur);
    const QString path = destDir() + text;
    if (previewOn() && IsImageFile(path))
        emit previewWanted(path, text);
}

void SavedFiles::PreviewFile(const QString &path)
{
    if (!sh.isBatch() && IsImageFile(path) && previewOn())
        emit previewWanted(path, QFileInfo(path).fileName());
}

void SavedFiles::OpenSelected()
{
    if (files.selectedCount() == 0) {
        sh.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Information, Prompter::Ok);
        return;
    }
    if (sh.S.QuietMode)
        return;
    int at = files.currentIndex();
    if (at < 0 || !files.isSelected(at))
        at = files.selectedIndexes().constFirst();
    sh.OpenDocument(destDir() + files.text(at));
}

void SavedFiles::SelectCurrentIfNone()
{
    if (files.count() == 0 || files.selectedCount() > 0)
        return;
    int cur = files.currentIndex();
    if (cur < 0) {
        cur = 0;
        files.setCurrentIndex(0);
    }
    files.setSelected(cur, true);
}

void SavedFiles::RemoveSelected()
{
    if (files.selectedCount() == 0)
        return;
    QStringList names;
    for (int i : files.selectedIndexes())
        names << files.text(i);

    if (sh.opt.ConfirmFileDelete == 1) {
        const QString question = names.size() == 1 ? QStringLiteral("Delete ") + names.first() + QStringLiteral(" ?")
                                                   : QStringLiteral("Delete all selected files?");
        const auto a = sh.prompter().message(question, Prompter::Question, Prompter::YesNoCancel,
                                             QStringLiteral("Newsdredge!"), Prompter::AnswerNo);
        if (a != Prompter::AnswerYes)
            return;
    }

    for (const QString &name : names) {
        const QString path = destDir() + name;
        QFileInfo fi(path);
        const bool gone = (!fi.exists() && !fi.isSymLink()) || QFile::remove(path);
        if (!gone) {
            sh.prompter().message(QStringLiteral("Unable to Delete File : ") + name + QStringLiteral(" !"),
                                  Prompter::Exclamation, Prompter::Ok);
            continue;
        }
        const int at = files.find(name);
        if (at >= 0)
            files.remove(at);
        emit fileRemoved(path);
    }
    sh.UpdateCaption(nd::Caption::SavedFiles);
}

// ------------------------------------------------------------------ preview

bool SavedFiles::previewOn() const
{
    return sh.opt.Preview != 0;
}

void SavedFiles::setPreviewOn(bool on)
{
    sh.opt.Preview = on ? 1 : 0;
}
