#include "gui/post/frmPostMsg.h"

#include "app/Shell.h"
#include "post/PostArticle.h"
#include "post/Poster.h"
#include "settings/Settings.h"

#include <QCloseEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

frmPostMsg::frmPostMsg(Shell &shell, Poster &p, QWidget *parent)
    : QWidget(parent, Qt::Window), sh(shell), poster(p)
{
    setObjectName(QStringLiteral("frmPostMsg"));
    setWindowTitle(QStringLiteral("Post Message"));
    setAttribute(Qt::WA_DeleteOnClose);
    buildWidgets();
    loadFields();

    connect(txtSig, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_loading && !sh.store().readOnly())
            sh.store().save(QStringLiteral("Signature"), txtSig->toPlainText());
    });
    connect(cmdOK, &QPushButton::clicked, this, &frmPostMsg::OkClicked);
    connect(cmdCancel, &QPushButton::clicked, this, [this] { close(); });
    cmdOK->installEventFilter(this);
    connect(&sh, &Shell::shuttingDown, this, [this] { close(); });

    connect(&poster, &Poster::statusChanged, this, &frmPostMsg::setStatus);
    connect(&poster, &Poster::runStarted, this, [this] { cmdOK->setEnabled(false); });
    connect(&poster, &Poster::runFinished, this, [this] {
        cmdCancel->setText(QStringLiteral("&Close"));
        cmdOK->setEnabled(true);
        if (m_closeAfterRun)
            QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
    });
}

void frmPostMsg::buildWidgets()
{
    txtName = new QLineEdit(this);
    txtName->setObjectName(QStringLiteral("txtName"));
    txtEmail = new QLineEdit(this);
    txtEmail->setObjectName(QStringLiteral("txtEmail"));
    txtSubject = new QLineEdit(this);
    txtSubject->setObjectName(QStringLiteral("txtSubject"));
    txtMessage = new QPlainTextEdit(this);
    txtMessage->setObjectName(QStringLiteral("txtMessage"));
    txtMessage->setLineWrapMode(QPlainTextEdit::NoWrap);
    txtSig = new QPlainTextEdit(this);
    txtSig->setObjectName(QStringLiteral("txtSig"));
    txtSig->setMaximumHeight(70);
    // Tab moves on to the next box, as in the other boxes of the window
    txtMessage->setTabChangesFocus(true);
    txtSig->setTabChangesFocus(true);
    cmdOK = new QPushButton(QStringLiteral("&OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setAutoDefault(false);
    cmdCancel = new QPushButton(QStringLiteral("&Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    cmdCancel->setAutoDefault(false);
    statbar = new QStatusBar(this);
    statbar->setSizeGripEnabled(false);
    for (int i = 0; i < 2; ++i) {
        m_panels[i] = new QLabel(this);
        statbar->addWidget(m_panels[i], i == 0 ? 1 : 2);
    }

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Name:"), txtName);
    form->addRow(QStringLiteral("Email:"), txtEmail);
    form->addRow(QStringLiteral("Subject:"), txtSubject);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto *lay = new QVBoxLayout(this);
    lay->addLayout(form);
    lay->addWidget(new QLabel(QStringLiteral("Message:"), this));
    lay->addWidget(txtMessage, 1);
    lay->addWidget(new QLabel(QStringLiteral("Signature:"), this));
    lay->addWidget(txtSig);
    lay->addLayout(buttons);
    lay->addWidget(statbar);
    resize(560, 480);
}

// The remembered fields and position.
void frmPostMsg::loadFields()
{
    SettingsStore &st = sh.store();
    txtName->setText(st.get(QStringLiteral("Name"), sh.opt.Name));
    txtEmail->setText(st.get(QStringLiteral("Email Address"), sh.opt.EmailAddress));
    txtSubject->setText(st.get(QStringLiteral("Subject")));
    txtSig->setPlainText(st.get(QStringLiteral("Signature")));
    if (st.contains(QStringLiteral("PTop")) && st.contains(QStringLiteral("PLeft")))
        move(int(st.getDouble(QStringLiteral("PLeft"), 0) / nd::TwipsPerPixel),
             int(st.getDouble(QStringLiteral("PTop"), 0) / nd::TwipsPerPixel));
    m_loading = false;
}

QString frmPostMsg::status(int panel) const
{
    return panel >= 1 && panel <= 2 ? m_panels[panel - 1]->text() : QString();
}

void frmPostMsg::setStatus(int panel, const QString &text)
{
    if (panel >= 1 && panel <= 2)
        m_panels[panel - 1]->setText(text);
}

bool frmPostMsg::posting() const
{
    return poster.posting();
}

bool frmPostMsg::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == cmdOK && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            if (poster.emailLooksValid(txtEmail->text()))
                OkClicked();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void frmPostMsg::OkClicked()
{
    if (poster.posting() || !poster.readyToPost()
        || !poster.fieldsComplete(txtName->text(), txtEmail->text(), txtSubject->text()))
        return;
    if (!txtSig->toPlainText().isEmpty())
        txtMessage->setPlainText(txtMessage->toPlainText() + QLatin1Char('\n') + txtSig->toPlainText());
    cmdPostMessage(txtSubject->text(), txtMessage->toPlainText());
}

void frmPostMsg::cmdPostMessage(const QString &subject, const QString &messageText)
{
    PostArticle::Fields f;
    f.name = txtName->text();
    f.email = txtEmail->text();
    f.subject = subject;
    f.body = messageText;
    poster.cmdPostMessage(f);
}

void frmPostMsg::saveFields()
{
    // the main window writes Name and Email Address again at shutdown: keep it in step
    sh.opt.Name = txtName->text();
    sh.opt.EmailAddress = txtEmail->text();
    SettingsStore &st = sh.store();
    if (st.readOnly())
        return;
    st.save(QStringLiteral("Email Address"), txtEmail->text());
    st.save(QStringLiteral("Subject"), txtSubject->text());
    st.save(QStringLiteral("Name"), txtName->text());
    st.save(QStringLiteral("Signature"), txtSig->toPlainText());
    st.save(QStringLiteral("PTop"), QString::number(qRound(y() * nd::TwipsPerPixel)));
    st.save(QStringLiteral("PLeft"), QString::number(qRound(x() * nd::TwipsPerPixel)));
}

void frmPostMsg::closeEvent(QCloseEvent *event)
{
    if (poster.posting()) {
        // the run ends at its next step; the window goes once it has
        poster.cancelRun();
        m_closeAfterRun = true;
        event->ignore();
        return;
    }
    saveFields();
    poster.windowClosed();
    event->accept();
    emit closed();
}
