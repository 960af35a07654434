#include "gui/download/SavedFilesView.h"

#include "gui/app/frmMain.h"
#include "download/SavedFiles.h"
#include "gui/download/frmMaxPrev.h"
#include "messages/MessageList.h"
#include "ui/ItemList.h"
#include "gui/ui/PictureBox.h"

#include <QAction>
#include <QEvent>
#include <QFileInfo>
#include <QGroupBox>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QScopeGuard>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>

namespace {
const QString FrameOn = QStringLiteral("Image Preview");
const QString FrameOff = QStringLiteral("*Image Preview");
} // namespace

SavedFilesView::SavedFilesView(frmMain &main, SavedFiles &savedFiles)
    : QObject(&main), m(main), files(savedFiles)
{
    m_preview = m.action(QStringLiteral("menuPreview"));
    m_large_action = m.action(QStringLiteral("menuPreviewL"));
    if (m_large_action) {
        m_large_action->setCheckable(true);
        m_large_action->setChecked(false);
    }
    m.shell().wireCommand(QStringLiteral("menuPreview"), [this] { TogglePreview(); });
    m.shell().wireCommand(QStringLiteral("menuPreviewL"), [this] { ToggleLargePreview(); });
    buildPreviewFrame();

    if (m.lstFilesView) {
        connect(m.lstFilesView, &QListView::clicked, this, [this] { files.ClickEntry(); });
        connect(m.lstFilesView, &QListView::doubleClicked, this, [this] { files.OpenSelected(); });
        m.lstFilesView->installEventFilter(this);
    }
    connect(&files, &SavedFiles::previewWanted, this, &SavedFilesView::showPreview);
    connect(&files, &SavedFiles::fileRemoved, this, &SavedFilesView::fileRemoved);
    if (m.messages)
        connect(m.messages, &MessageList::listingStarted, this, [this] {
            if (m.Picture1)
                m.Picture1->clear();
        });
    connect(&m.shell(), &Shell::settingsLoaded, this, &SavedFilesView::syncPreviewState);
    connect(&m.shell(), &Shell::previewCleared, this, [this] {
        clearPreviewBox();
        if (m_large && previewOn())
            m_large->picture()->clearPicture();
    });
    syncPreviewState();
}

SavedFilesView::~SavedFilesView()
{
    delete m_large;
}

frmMaxPrev *SavedFilesView::largePreview() const
{
    return m_large;
}

// The preview box sits in a frame of its own whose caption tells whether preview is on.
void SavedFilesView::buildPreviewFrame()
{
    if (!m.Picture1)
        return;
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

bool SavedFilesView::previewOn() const
{
    return m_preview && m_preview->isChecked();
}

bool SavedFilesView::largePreviewChecked() const
{
    return m_large_action && m_large_action->isChecked();
}

void SavedFilesView::syncPreviewState()
{
    const bool on = previewOn();
    if (m_frame)
        m_frame->setTitle(on ? FrameOn : FrameOff);
    if (m_large_action)
        m_large_action->setEnabled(on);
}

void SavedFilesView::TogglePreview()
{
    if (!m_preview)
        return;
    files.setPreviewOn(m_preview->isChecked());
    if (!m_preview->isChecked()) {
        clearPreviewBox();
        if (largePreviewChecked() && m_large && m_large->isVisible())
            m_large->close();
    }
    syncPreviewState();
}

void SavedFilesView::ToggleLargePreview()
{
    if (!largePreviewChecked()) {
        if (m_large && m_large->isVisible())
            m_large->close();
        return;
    }
    if (previewOn() && !m_previewPath.isEmpty() && SavedFiles::IsImageFile(m_previewPath))
        showLargePreview(m_previewPath, QFileInfo(m_previewPath).fileName());
}

void SavedFilesView::openLarge(const QString &path)
{
    if (m_large_action)
        m_large_action->setChecked(true);
    showLargePreview(path, QFileInfo(path).fileName());
}

void SavedFilesView::showPreview(const QString &path, const QString &entryText)
{
    showInPreviewBox(path);
    if (largePreviewChecked())
        showLargePreview(path, entryText);
}

void SavedFilesView::fileRemoved(const QString &path)
{
    if (path != m_previewPath)
        return;
    clearPreviewBox();
    if (m_large && m_large->isVisible())
        m_large->close();
}

bool SavedFilesView::showInPreviewBox(const QString &path)
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

void SavedFilesView::clearPreviewBox()
{
    m_previewImage = QImage();
    m_previewPath.clear();
    if (m.Picture1)
        m.Picture1->clear();
}

void SavedFilesView::refitPreview()
{
    if (!m.Picture1)
        return;
    if (m_previewImage.isNull())
        m.Picture1->clear();
    else
        m.Picture1->setPixmap(PictureBox::fitted(m_previewImage, m.Picture1->contentsRect().size()));
}

void SavedFilesView::showLargePreview(const QString &path, const QString &entryText)
{
    if (!m_large)
        m_large = new frmMaxPrev(m);
    m_large->showPicture(path, entryText);
}

bool SavedFilesView::listKeyPressed(int key, Qt::KeyboardModifiers modifiers)
{
    switch (key) {
    case Qt::Key_Delete: {
        m.lstFilesView->setUpdatesEnabled(false);
        auto restore = qScopeGuard([this] { m.lstFilesView->setUpdatesEnabled(true); });
        files.RemoveSelected();
        return true;
    }
    case Qt::Key_Return:
    case Qt::Key_Enter:
        files.OpenSelected();
        return true;
    case Qt::Key_Space:
        files.SelectCurrentIfNone();
        return true;
    case Qt::Key_A:
        if (!(modifiers & Qt::ControlModifier))
            return false;
        m.lstFiles->selectAll();
        return true;
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
        // the view moves first; the entry it lands on is previewed as a click does
        QTimer::singleShot(0, this, [this] { files.ClickEntry(); });
        return false;
    default:
        return false;
    }
}

bool SavedFilesView::eventFilter(QObject *watched, QEvent *event)
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
        if (listKeyPressed(k->key(), k->modifiers()))
            return true;
    }
    return QObject::eventFilter(watched, event);
}
