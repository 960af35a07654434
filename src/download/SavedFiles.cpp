#include "download/SavedFiles.h"

#include "app/frmMain.h"
#include "app/Paths.h"
#include "download/Downloader.h"
#include "download/frmMaxPrev.h"
#include "ui/ItemList.h"
#include "ui/PictureBox.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QHash>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMimeDatabase>
#include <QSplitter>
#include <QScopeGuard>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>

namespace {
const QString FrameOn = QStringLiteral("Image Preview");
const QString FrameOff = QStringLiteral("*Image Preview");
const QString HtmlIcon = QStringLiteral("text-html");
} // namespace

SavedFiles::SavedFiles(frmMain &main) : QObject(&main), m(main)
{
    m_preview = m.action(QStringLiteral("menuPreview"));
    m_large_action = m.action(QStringLiteral("menuPreviewL"));
    if (m_large_action) {
        m_large_action->setCheckable(true);
        m_large_action->setChecked(false);
    }
    m.wireCommand(QStringLiteral("menuPreview"), [this] { TogglePreview(); });
    m.wireCommand(QStringLiteral("menuPreviewL"), [this] { ToggleLargePreview(); });

    // The preview box sits in a frame of its own whose caption tells whether preview is on.
    if (m.Picture1) {
        if (auto *split = qobject_cast<QSplitter *>(m.Picture1->parentWidget())) {
            const int at = split->indexOf(m.Picture1);
            m_frame = new QGroupBox(FrameOn);
            m_frame->setObjectName(QStringLiteral("framePreview"));
            auto *l = new QVBoxLayout(m_frame);
            l->setContentsMargins(4, 4, 4, 4);
            split->insertWidget(at, m_frame);
            l->addWidget(m.Picture1);
        }
        m.Picture1->installEventFilter(this);
    }

    if (m.lstFilesView) {
        connect(m.lstFilesView, &QListView::clicked, this, [this] { ClickEntry(); });
        connect(m.lstFilesView, &QListView::doubleClicked, this, [this] { OpenSelected(); });
        m.lstFilesView->installEventFilter(this);
    }
    if (m.downloader)
        connect(m.downloader, &Downloader::fileSaved, this, [this](const QString &path) {
            AddSavedFile(path);
            PreviewFile(path);
        });
    connect(&m.shell(), &Shell::settingsLoaded, this, &SavedFiles::syncPreviewState);
    connect(&m.shell(), &Shell::previewCleared, this, [this] {
        clearPreviewBox();
        if (m_large && previewOn())
            m_large->picture()->clearPicture();
    });
    syncPreviewState();
}

QString SavedFiles::destDir() const
{
    return nd::withTrailingSlash(m.opt.DestDir);
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

QIcon SavedFiles::iconForFile(const QString &fileName)
{
    static QHash<QString, QIcon> cache;   // by the names tried, so each file type is looked up once
    const QStringList names = iconNamesFor(fileName);
    const QString key = QIcon::themeName() + QLatin1Char('|') + names.join(QLatin1Char('|'));
    auto it = cache.constFind(key);
    if (it != cache.constEnd())
        return *it;
    QIcon icon;
    for (const QString &n : names)
        if (QIcon::hasThemeIcon(n)) {
            icon = QIcon::fromTheme(n);
            break;
        }
    if (icon.isNull())
        icon = QApplication::style()->standardIcon(QStyle::SP_FileIcon);
    cache.insert(key, icon);
    return icon;
}

// ------------------------------------------------------------------ the list

void SavedFiles::AddSavedFile(const QString &path)
{
    ItemList *list = m.lstFiles;
    const QString name = path.contains(QLatin1Char('/')) ? QFileInfo(path).fileName() : path;
    if (!list || name.isEmpty())
        return;
    int at = list->find(name);
    if (at < 0)
        at = list->add(name);
    if (list->icon(at).isNull())
        list->setIcon(at, iconForFile(name));
    m.UpdateCaption(QStringLiteral("3"));
}

void SavedFiles::ClickEntry()
{
    ItemList *list = m.lstFiles;
    const int cur = list ? list->currentIndex() : -1;
    if (cur < 0)
        return;
    const QString text = list->text(cur);
    const QString path = destDir() + text;
    if (!previewOn() || !IsImageFile(path))
        return;
    showInPreviewBox(path);
    if (largePreviewChecked())
        showLargePreview(path, text);
}

void SavedFiles::OpenSelected()
{
    ItemList *list = m.lstFiles;
    if (!list || list->selectedCount() == 0) {
        m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Information, Prompter::Ok);
        return;
    }
    if (m.S.QuietMode)
        return;
    int at = list->currentIndex();
    if (at < 0 || !list->isSelected(at))
        at = list->selectedIndexes().constFirst();
    m.OpenDocument(destDir() + list->text(at));
}

void SavedFiles::SelectCurrentIfNone()
{
    ItemList *list = m.lstFiles;
    if (!list || list->count() == 0 || list->selectedCount() > 0)
        return;
    int cur = list->currentIndex();
    if (cur < 0) {
        cur = 0;
        list->setCurrentIndex(0);
    }
    list->setSelected(cur, true);
}

void SavedFiles::RemoveSelected()
{
    ItemList *list = m.lstFiles;
    if (!list || list->selectedCount() == 0)
        return;
    QStringList names;
    for (int i : list->selectedIndexes())
        names << list->text(i);
    if (m.lstFilesView)
        m.lstFilesView->setUpdatesEnabled(false);
    auto restore = qScopeGuard([this] {
        if (m.lstFilesView)
            m.lstFilesView->setUpdatesEnabled(true);
    });

    if (m.opt.ConfirmFileDelete == 1) {
        const QString question = names.size() == 1 ? QStringLiteral("Delete ") + names.first() + QStringLiteral(" ?")
                                                   : QStringLiteral("Delete all selected files?");
        const auto a = m.prompter().message(question, Prompter::Question, Prompter::YesNoCancel,
                                            QStringLiteral("Newsdredge!"), Prompter::AnswerNo);
        if (a != Prompter::AnswerYes)
            return;
    }

    for (const QString &name : names) {
        const QString path = destDir() + name;
        QFileInfo fi(path);
        const bool gone = (!fi.exists() && !fi.isSymLink()) || QFile::remove(path);
        if (!gone) {
            m.prompter().message(QStringLiteral("Unable to Delete File : ") + name + QStringLiteral(" !"),
                                 Prompter::Exclamation, Prompter::Ok);
            continue;
        }
        const int at = list->find(name);
        if (at >= 0)
            list->remove(at);
        if (path == m_previewPath) {
            clearPreviewBox();
            if (m_large && m_large->isVisible())
                m_large->close();
        }
    }
    m.UpdateCaption(QStringLiteral("3"));
}

// ------------------------------------------------------------------ preview

bool SavedFiles::previewOn() const
{
    return m_preview && m_preview->isChecked();
}

bool SavedFiles::largePreviewChecked() const
{
    return m_large_action && m_large_action->isChecked();
}

void SavedFiles::syncPreviewState()
{
    const bool on = previewOn();
    if (m_frame)
        m_frame->setTitle(on ? FrameOn : FrameOff);
    if (m_large_action)
        m_large_action->setEnabled(on);
}

void SavedFiles::TogglePreview()
{
    if (!m_preview)
        return;
    if (!m_preview->isChecked()) {
        m.opt.Preview = 0;
        clearPreviewBox();
        if (largePreviewChecked() && m_large && m_large->isVisible())
            m_large->close();
    } else {
        m.opt.Preview = 1;
    }
    syncPreviewState();
}

void SavedFiles::ToggleLargePreview()
{
    if (!largePreviewChecked()) {
        if (m_large && m_large->isVisible())
            m_large->close();
        return;
    }
    if (previewOn() && !m_previewPath.isEmpty() && IsImageFile(m_previewPath))
        showLargePreview(m_previewPath, QFileInfo(m_previewPath).fileName());
}

void SavedFiles::PreviewFile(const QString &path)
{
    if (m.isBatch() || !IsImageFile(path) || !previewOn())
        return;
    showInPreviewBox(path);
    if (largePreviewChecked())
        showLargePreview(path, QFileInfo(path).fileName());
}

bool SavedFiles::showInPreviewBox(const QString &path)
{
    QLabel *box = m.Picture1;
    if (!box)
        return false;
    const QImage img = PictureBox::loadPicture(path);
    box->hide();
    m_previewImage = img;
    m_previewPath = img.isNull() ? QString() : path;
    refitPreview();
    box->show();
    return !img.isNull();
}

void SavedFiles::clearPreviewBox()
{
    m_previewImage = QImage();
    m_previewPath.clear();
    if (m.Picture1)
        m.Picture1->clear();
}

void SavedFiles::refitPreview()
{
    if (!m.Picture1)
        return;
    if (m_previewImage.isNull())
        m.Picture1->clear();
    else
        m.Picture1->setPixmap(PictureBox::fitted(m_previewImage, m.Picture1->contentsRect().size()));
}

void SavedFiles::showLargePreview(const QString &path, const QString &entryText)
{
    if (m.isBatch())
        return;
    if (!m_large)
        m_large = new frmMaxPrev(m);
    m_large->showPicture(path, entryText);
}

bool SavedFiles::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m.Picture1) {
        // a box emptied elsewhere (a new listing, a disconnect) stays empty
        if ((event->type() == QEvent::Resize || event->type() == QEvent::MouseButtonDblClick)
            && !m_previewImage.isNull() && m.Picture1->pixmap().isNull())
            clearPreviewBox();
        if (event->type() == QEvent::Resize) {
            refitPreview();
        } else if (event->type() == QEvent::MouseButtonDblClick && previewOn()) {
            if (m_large_action)
                m_large_action->setChecked(true);
            if (!m_previewPath.isEmpty())
                showLargePreview(m_previewPath, QFileInfo(m_previewPath).fileName());
            return true;
        }
    } else if (watched == m.lstFilesView && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_Delete) {
            RemoveSelected();
            return true;
        }
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            OpenSelected();
            return true;
        }
        if (k->key() == Qt::Key_Space) {
            SelectCurrentIfNone();
            return true;
        }
        if (k->key() == Qt::Key_A && (k->modifiers() & Qt::ControlModifier)) {
            m.lstFiles->selectAll();
            return true;
        }
        if (k->key() == Qt::Key_Up || k->key() == Qt::Key_Down || k->key() == Qt::Key_PageUp
            || k->key() == Qt::Key_PageDown || k->key() == Qt::Key_Home || k->key() == Qt::Key_End) {
            // the view moves first; the entry it lands on is previewed as a click does
            QTimer::singleShot(0, this, [this] { ClickEntry(); });
        }
    }
    return QObject::eventFilter(watched, event);
}

frmMaxPrev *SavedFiles::largePreview() const
{
    return m_large;
}
