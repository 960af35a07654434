#include "gui/download/frmMaxPrev.h"

#include "gui/app/frmMain.h"
#include "download/SavedFiles.h"
#include "settings/Settings.h"
#include "ui/ItemList.h"
#include "gui/ui/PictureBox.h"

#include <QAction>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

frmMaxPrev::frmMaxPrev(frmMain &main) : QWidget(&main, Qt::Window), m(main)
{
    setObjectName(QStringLiteral("frmMaxPrev"));
    setWindowTitle(QStringLiteral("Preview"));
    auto *l = new QVBoxLayout(this);
    l->setContentsMargins(0, 0, 0, 0);
    m_picture = new PictureBox(this);
    m_picture->setObjectName(QStringLiteral("lPicture"));
    m_picture->setFocusPolicy(Qt::StrongFocus);
    m_picture->setUpscale(true);   // the picture fills the window
    m_picture->installEventFilter(this);
    l->addWidget(m_picture);
    setFocusProxy(m_picture);
    connect(&m.shell(), &Shell::shuttingDown, this, &QWidget::close);
}

QString frmMaxPrev::picturePath() const
{
    return m_picture->picturePath();
}

void frmMaxPrev::showPicture(const QString &path, const QString &entryText)
{
    m_entry = entryText;
    setWindowTitle(QStringLiteral("Preview (") + entryText + QStringLiteral(")"));
    m_picture->hide();
    m_picture->setPicture(path);
    m_picture->show();
    if (!isVisible()) {
        if (!m_placed) {
            restoreStoredGeometry();
            m_placed = true;
        }
        show();
    }
    raise();
    m_picture->setFocus();
}

void frmMaxPrev::restoreStoredGeometry()
{
    QRect screen(0, 0, 1024, 768);
    if (QScreen *s = QGuiApplication::primaryScreen())
        screen = s->availableGeometry();
    const double tpp = nd::TwipsPerPixel;
    int w = int(m.store().getDouble(QStringLiteral("PWidth"), 480 * tpp) / tpp);
    int h = int(m.store().getDouble(QStringLiteral("PHeight"), 360 * tpp) / tpp);
    w = qBound(120, w, qMax(120, screen.width()));
    h = qBound(90, h, qMax(90, screen.height()));
    int left = int(m.store().getDouble(QStringLiteral("PLeft"), (screen.x() + (screen.width() - w) / 2) * tpp) / tpp);
    int top = int(m.store().getDouble(QStringLiteral("PTop"), (screen.y() + (screen.height() - h) / 2) * tpp) / tpp);
    left = qBound(screen.left(), left, qMax(screen.left(), screen.right() - w + 1));
    top = qBound(screen.top(), top, qMax(screen.top(), screen.bottom() - h + 1));
    setGeometry(left, top, w, h);
}

void frmMaxPrev::storeGeometry()
{
    const QRect g = geometry();
    const double tpp = nd::TwipsPerPixel;
    m.store().save(QStringLiteral("PTop"), QString::number(g.y() * tpp));
    m.store().save(QStringLiteral("PLeft"), QString::number(g.x() * tpp));
    m.store().save(QStringLiteral("PHeight"), QString::number(g.height() * tpp));
    m.store().save(QStringLiteral("PWidth"), QString::number(g.width() * tpp));
}

int frmMaxPrev::classicKeyCode(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Delete: return 46;
    case Qt::Key_Return:
    case Qt::Key_Enter: return 13;
    case Qt::Key_Space: return 32;
    case Qt::Key_PageUp: return 33;
    case Qt::Key_PageDown: return 34;
    case Qt::Key_Up: return 38;
    case Qt::Key_Down: return 40;
    default: return 0;
    }
}

void frmMaxPrev::SetlPicture(int keyCode)
{
    SavedFiles *files = m.savedFiles;
    ItemList *list = m.lstFiles;
    if (!files || !list)
        return;
    const int pos = list->find(m_entry);
    switch (keyCode) {
    case 46:
        files->RemoveSelected();
        break;
    case 13:
        files->OpenSelected();
        break;
    case 32:
        files->SelectCurrentIfNone();
        break;
    case 33:
    case 38:
    case 34:
    case 40: {
        const int next = pos + ((keyCode == 33 || keyCode == 38) ? -1 : 1);
        if (next >= 0 && next < list->count()) {
            list->clearSelection();
            list->setCurrentIndex(next);
            list->setSelected(next, true);
            files->ClickEntry();
        }
        break;
    }
    default:
        break;
    }
    if (isVisible())
        m_picture->setFocus();
}

void frmMaxPrev::keyPressEvent(QKeyEvent *event)
{
    if (const int code = classicKeyCode(event->key())) {
        SetlPicture(code);
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool frmMaxPrev::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_picture && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (const int code = classicKeyCode(k->key())) {
            SetlPicture(code);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void frmMaxPrev::closeEvent(QCloseEvent *event)
{
    if (QAction *a = m.action(QStringLiteral("menuPreviewL")))
        a->setChecked(false);
    storeGeometry();
    QWidget::closeEvent(event);
}
