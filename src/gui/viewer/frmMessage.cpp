#include "gui/viewer/frmMessage.h"

#include "app/Paths.h"
#include "gui/app/frmMain.h"
#include "gui/download/SavedFilesView.h"
#include "post/Poster.h"
#include "settings/Settings.h"
#include "gui/ui/PictureBox.h"
#include "ui/Prompter.h"
#include "viewer/Viewer.h"

#include <QAction>
#include <QClipboard>
#include <QCloseEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPrinter>
#include <QPrinterInfo>
#include <QRegularExpression>
#include <QScreen>
#include <QSplitter>
#include <QTextDocument>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindow>

namespace {
const QString CaptionWhole = QStringLiteral("Message Contents");
const QString CaptionPartial = QStringLiteral("Message Contents (Partial)");
} // namespace

frmMessage::frmMessage(frmMain &main, Viewer &v, SavedFilesView *previews)
    : QWidget(&main, Qt::Window), m(main), viewer(v), preview(previews)
{
    setObjectName(QStringLiteral("frmMessage"));
    setWindowTitle(QStringLiteral("Message"));
    setAttribute(Qt::WA_DeleteOnClose, false);
    // The viewer goes away when the user turns back to the main window; a box it shows, the
    // mail program opened from it or any other program taking the focus leave it up.
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, [this](QWindow *focus) {
        if (!focus || focus != m.windowHandle() || !isVisible() || viewer.loading())
            return;
        SaveViewerGeometry();
        if (!(m.poster && m.poster->replyMode()))
            close();
    });
    const double tpp = nd::TwipsPerPixel;
    setMinimumSize(int(MinWidthTwips / tpp + 0.5), int(MinHeightTwips / tpp + 0.5));

    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(6, 6, 6, 6);
    menuBar = new QMenuBar(this);
    menuBar->setObjectName(QStringLiteral("menuBar"));
    outer->setMenuBar(menuBar);
    auto addCommand = [this](const char *name, const char *caption, void (frmMessage::*slot)()) {
        QAction *a = menuBar->addAction(QString::fromUtf8(caption));
        a->setObjectName(QString::fromLatin1(name));
        connect(a, &QAction::triggered, this, slot);
        return a;
    };
    addCommand("menuNext", "&Next", &frmMessage::Next);
    addCommand("menuPrevious", "&Previous", &frmMessage::Previous);
    addCommand("menuPrint", "P&rint", &frmMessage::Print);
    addCommand("menuCopy", "&Copy", &frmMessage::Copy);
    addCommand("menuReply", "&Reply", &frmMessage::Reply);
    QAction *exit = menuBar->addAction(QStringLiteral("E&xit"));
    exit->setObjectName(QStringLiteral("menuExit"));
    connect(exit, &QAction::triggered, this, &QWidget::close);

    frameTitle = new QGroupBox(this);
    frameTitle->setObjectName(QStringLiteral("frameTitle"));
    auto *tl = new QGridLayout(frameTitle);
    auto makeBox = [this](const char *name) {
        auto *e = new QLineEdit(this);
        e->setObjectName(QString::fromLatin1(name));
        e->setReadOnly(true);
        return e;
    };
    txtTitle = makeBox("txtTitle");
    txtDate = makeBox("txtDate");
    txtEmail = makeBox("txtEmail");
    txtEmail->setCursor(Qt::PointingHandCursor);
    txtEmail->setToolTip(QStringLiteral("Write an e-mail to the sender"));
    txtEmail->installEventFilter(this);
    tl->addWidget(new QLabel(QStringLiteral("Subject:"), this), 0, 0);
    tl->addWidget(txtTitle, 0, 1, 1, 3);
    tl->addWidget(new QLabel(QStringLiteral("From:"), this), 1, 0);
    tl->addWidget(txtEmail, 1, 1);
    tl->addWidget(new QLabel(QStringLiteral("Date:"), this), 1, 2);
    tl->addWidget(txtDate, 1, 3);
    // the whole date stays readable at the viewer's smallest size
    txtDate->setMinimumWidth(txtDate->fontMetrics().horizontalAdvance(QStringLiteral("00/00/0000")) + 12);
    tl->setColumnStretch(1, 3);
    tl->setColumnStretch(3, 1);
    outer->addWidget(frameTitle);

    frameBody = new QGroupBox(CaptionWhole, this);
    frameBody->setObjectName(QStringLiteral("frameBody"));
    auto *bl = new QVBoxLayout(frameBody);
    m_split = new QSplitter(Qt::Vertical, frameBody);
    txtMsgBody = new QPlainTextEdit(this);
    txtMsgBody->setObjectName(QStringLiteral("txtMsgBody"));
    txtMsgBody->setReadOnly(true);
    txtMsgBody->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    txtMsgBody->installEventFilter(this);
    Image1 = new PictureBox(this);
    Image1->setObjectName(QStringLiteral("Image1"));
    Image1->setCursor(Qt::PointingHandCursor);
    Image1->hide();
    connect(Image1, &PictureBox::clicked, this, [this] {
        if (Image1->hasPicture() && preview)
            preview->openLarge(Image1->picturePath());
    });
    m_split->addWidget(txtMsgBody);
    m_split->addWidget(Image1);
    m_split->setStretchFactor(0, 2);
    m_split->setStretchFactor(1, 3);
    bl->addWidget(m_split);
    outer->addWidget(frameBody, 1);

    printerFactory = []() -> std::unique_ptr<QPrinter> {
        const QPrinterInfo def = QPrinterInfo::defaultPrinter();
        if (def.isNull())
            return nullptr;
        return std::make_unique<QPrinter>(def);
    };

    connect(&m.shell(), &Shell::shuttingDown, this, [this] {
        if (isVisible())
            close();
    });
    updateReplyState();
}

frmMessage::~frmMessage() = default;

QAction *frmMessage::action(const QString &name) const
{
    return menuBar->findChild<QAction *>(name);
}

void frmMessage::updateReplyState()
{
    // replies are written in the post window; without it there is nothing to reply with
    if (QAction *r = action(QStringLiteral("menuReply")))
        r->setEnabled(m.poster != nullptr);
}

// ------------------------------------------------------------------ geometry

void frmMessage::placeFromStore()
{
    const double tpp = nd::TwipsPerPixel;
    const QRect mainGeo = m.geometry();
    const SettingsStore &st = m.store();
    int top = int(st.getDouble(QStringLiteral("MTop"), mainGeo.y() * tpp) / tpp);
    int left = int(st.getDouble(QStringLiteral("MLeft"), mainGeo.x() * tpp) / tpp);
    int w = int(st.getDouble(QStringLiteral("MWidth"), MinWidthTwips) / tpp + 0.5);
    int h = int(st.getDouble(QStringLiteral("MHeight"), MinHeightTwips) / tpp + 0.5);
    w = qMax(w, minimumWidth());
    h = qMax(h, minimumHeight());
    // a window stored on a screen that is gone comes back onto the desktop
    QRect desktop;
    for (QScreen *s : QGuiApplication::screens())
        desktop = desktop.united(s->availableGeometry());
    if (!desktop.isEmpty()) {
        w = qMin(w, qMax(desktop.width(), minimumWidth()));
        h = qMin(h, qMax(desktop.height(), minimumHeight()));
        left = qBound(desktop.left(), left, qMax(desktop.left(), desktop.right() - w + 1));
        top = qBound(desktop.top(), top, qMax(desktop.top(), desktop.bottom() - h + 1));
    }
    setGeometry(left, top, w, h);
}

void frmMessage::SaveViewerGeometry()
{
    const QRect g = (isMinimized() || isMaximized()) && normalGeometry().isValid() ? normalGeometry() : geometry();
    const double tpp = nd::TwipsPerPixel;
    SettingsStore &st = m.store();
    st.save(QStringLiteral("MTop"), QString::number(float(g.y() * tpp)));
    st.save(QStringLiteral("MLeft"), QString::number(float(g.x() * tpp)));
    st.save(QStringLiteral("MWidth"), QString::number(float(g.width() * tpp)));
    st.save(QStringLiteral("MHeight"), QString::number(float(g.height() * tpp)));
}

// ------------------------------------------------------------------ loading

void frmMessage::showOpening(const ViewedMessage &msg)
{
    if (!(windowState() & (Qt::WindowMinimized | Qt::WindowMaximized)))
        placeFromStore();
    updateReplyState();
    ViewArticleNumber = msg.articleNumber;
    txtTitle->setText(msg.subject);
    txtDate->setText(msg.date);
    txtEmail->setText(msg.sender);
    txtTitle->setCursorPosition(0);
    txtEmail->setCursorPosition(0);
    MessageId = msg.messageId;
    References = msg.references;
}

void frmMessage::showMessage(const ViewedMessage &msg)
{
    showText(msg.text);
    if (!ViewerShown) {
        show();
        ViewerShown = true;
    }
    raise();
    activateWindow();
    showPicture(msg.picturePath);
}

void frmMessage::showText(const QString &text)
{
    QString shown;
    if (text.size() < TextLimit) {
        shown = text;
        frameBody->setTitle(CaptionWhole);
    } else {
        int cut = TextLimit;
        if (text.at(cut - 1).isHighSurrogate())
            --cut;   // never half a character
        shown = text.left(cut);
        frameBody->setTitle(CaptionPartial);
    }
    shown.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    txtMsgBody->setPlainText(shown);
}

void frmMessage::showPicture(const QString &path)
{
    Image1->clearPicture();
    Image1->hide();
    if (path.isEmpty() || !preview || !preview->previewOn())
        return;
    if (Image1->setPicture(path))
        Image1->show();
    preview->showInPreviewBox(path);
}

// ------------------------------------------------------------------ commands

void frmMessage::Next()
{
    SaveViewerGeometry();
    viewer.step(1);
}

void frmMessage::Previous()
{
    SaveViewerGeometry();
    viewer.step(-1);
}

QString frmMessage::printText() const
{
    return QStringLiteral("\n\n\nMessage Title : ") + txtTitle->text() + QStringLiteral("\n\n") + txtMsgBody->toPlainText();
}

bool frmMessage::printTo(QPrinter &printer) const
{
    if (!printer.isValid())
        return false;
    QTextDocument doc;
    doc.setDefaultFont(txtMsgBody->font());
    doc.setPlainText(printText());
    doc.print(&printer);
    return printer.printerState() != QPrinter::Error && printer.printerState() != QPrinter::Aborted;
}

void frmMessage::Print()
{
    bool ok = false;
    try {
        std::unique_ptr<QPrinter> printer = printerFactory ? printerFactory() : nullptr;
        ok = printer && printTo(*printer);
    } catch (...) {
        ok = false;
    }
    if (!ok)
        m.prompter().message(QStringLiteral("Error: Cannot Print."), Prompter::Critical, Prompter::Ok);
}

void frmMessage::Copy()
{
    QClipboard *cb = QGuiApplication::clipboard();
    if (!cb)
        return;
    cb->clear();
    QString selected = txtMsgBody->textCursor().selectedText();
    selected.replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
    selected.replace(QChar::LineSeparator, QLatin1Char('\n'));
    cb->setText(selected.isEmpty() ? txtMsgBody->toPlainText() : selected);
}

void frmMessage::Reply()
{
    if (!m.poster)
        return;
    m.poster->Reply(txtEmail->text(), txtTitle->text(), MessageId, References, txtMsgBody->toPlainText());
}

QString frmMessage::mailAddress(const QString &sender)
{
    // an address in angle brackets wins; the first pair holding "@" is taken
    QString bracketed;
    qsizetype from = 0;
    while (true) {
        const qsizetype lt = sender.indexOf(QLatin1Char('<'), from);
        if (lt < 0)
            break;
        const qsizetype gt = sender.indexOf(QLatin1Char('>'), lt + 1);
        if (gt < 0)
            break;
        const QString inner = sender.mid(lt + 1, gt - lt - 1).trimmed();
        if (inner.contains(QLatin1Char('@')))
            return inner;
        if (bracketed.isEmpty())
            bracketed = inner;
        from = gt + 1;
    }
    static const QRegularExpression separators(QStringLiteral("[\\s<>()\\[\\],;\"]+"));
    for (const QString &token : sender.split(separators, Qt::SkipEmptyParts))
        if (token.contains(QLatin1Char('@')))
            return token;
    return bracketed;
}

QString frmMessage::mailtoTarget(const QString &sender)
{
    const QString addr = mailAddress(sender);
    if (addr.isEmpty())
        return QString();
    return QStringLiteral("mailto:") + QString::fromLatin1(QUrl::toPercentEncoding(addr, "@"));
}

void frmMessage::MailSender()
{
    const QString target = mailtoTarget(txtEmail->text());
    if (!target.isEmpty())
        m.OpenDocument(target);
}

// ------------------------------------------------------------------ events

void frmMessage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() != QEvent::ActivationChange || isActiveWindow() || !isVisible() || viewer.loading())
        return;
    SaveViewerGeometry();
}

void frmMessage::closeEvent(QCloseEvent *event)
{
    viewer.windowClosed();
    SaveViewerGeometry();
    ViewerShown = false;
    QWidget::closeEvent(event);
    emit closed();
}

bool frmMessage::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == txtEmail && event->type() == QEvent::MouseButtonRelease) {
        auto *me = static_cast<QMouseEvent *>(event);
        if (me->button() == Qt::LeftButton && !txtEmail->hasSelectedText())
            MailSender();
    } else if (watched == txtMsgBody && event->type() == QEvent::KeyPress) {
        if (static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
            close();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
