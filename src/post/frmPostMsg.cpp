#include "post/frmPostMsg.h"

#include "app/Paths.h"
#include "app/Wait.h"
#include "app/frmMain.h"
#include "groups/FavoriteRules.h"
#include "groups/StopLatch.h"
#include "news/Session.h"
#include "post/PostArticle.h"
#include "settings/Settings.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QCloseEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStatusBar>
#include <QTableView>
#include <QVBoxLayout>

namespace {
const QString Connected = QStringLiteral("Connected to NNTP Server");
const QString Title = QStringLiteral("Newsdredge!");
}

frmPostMsg::frmPostMsg(frmMain &main) : QWidget(&main, Qt::Window), m(main)
{
    setObjectName(QStringLiteral("frmPostMsg"));
    setWindowTitle(QStringLiteral("Post Message"));
    setAttribute(Qt::WA_DeleteOnClose);

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

    // the remembered fields
    SettingsStore &st = m.store();
    txtName->setText(st.get(QStringLiteral("Name"), m.opt.Name));
    txtEmail->setText(st.get(QStringLiteral("Email Address"), m.opt.EmailAddress));
    txtSubject->setText(st.get(QStringLiteral("Subject")));
    txtSig->setPlainText(st.get(QStringLiteral("Signature")));
    if (st.contains(QStringLiteral("PTop")) && st.contains(QStringLiteral("PLeft")))
        move(int(st.getDouble(QStringLiteral("PLeft"), 0) / nd::TwipsPerPixel),
             int(st.getDouble(QStringLiteral("PTop"), 0) / nd::TwipsPerPixel));
    m_loading = false;

    connect(txtSig, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_loading && !m.store().readOnly())
            m.store().save(QStringLiteral("Signature"), txtSig->toPlainText());
    });
    connect(cmdOK, &QPushButton::clicked, this, &frmPostMsg::OkClicked);
    connect(cmdCancel, &QPushButton::clicked, this, [this] {
        close();
    });
    cmdOK->installEventFilter(this);
    connect(&m.shell(), &Shell::shuttingDown, this, [this] { close(); });
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

bool frmPostMsg::CheckWindows()
{
    switch (PostScope) {
    case CurrentGroup: {
        const bool listing = !m.S.CurrentGroup.isEmpty()
            && m.lblGrp->text().startsWith(QLatin1String("  Available Messages"));
        if (!listing || !m.MSHResults->isEnabled()) {
            m.prompter().message(QStringLiteral("Must Be in Message Listing to Use This Function"),
                                 Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        return true;
    }
    case SelectedGroups:
        if (m.lstGroups->selectedCount() < 1) {
            m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        return true;
    case SelectedFavorites: {
        if (m.lstFavorites->selectedCount() < 1) {
            m.prompter().message(QStringLiteral("Please Select Item(s) First"), Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        // each favourite connects to its own server
        const QString state = m.session && m.session->transport() ? m.session->transport()->StateText()
                                                                  : QStringLiteral("Disconnected from NNTP Server");
        if (state != QLatin1String("Disconnected from NNTP Server")) {
            m.prompter().message(QStringLiteral("Please Disconnect First"), Prompter::Exclamation, Prompter::Ok, Title);
            return false;
        }
        return true;
    }
    default:
        return false;
    }
}

bool frmPostMsg::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == cmdOK && event->type() == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        if (k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter) {
            if (!PostArticle::looksLikeEmail(txtEmail->text())) {
                m.prompter().message(QStringLiteral("Invalid Email Address!"), Prompter::Exclamation, Prompter::Ok, Title);
                return true;
            }
            OkClicked();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void frmPostMsg::OkClicked()
{
    if (m_posting)
        return;
    if ((m.session && m.session->transactionRunning()) || m.S.DownloadBusy) {
        // one transaction at a time: the listing or download that runs now finishes first
        m.setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        setStatus(2, QStringLiteral("Please wait until current transaction is finished"));
        return;
    }
    if (txtName->text().trimmed().isEmpty() || txtEmail->text().trimmed().isEmpty()
        || txtSubject->text().trimmed().isEmpty()) {
        m.prompter().message(QStringLiteral("Please enter name, email and subject."), Prompter::Critical);
        return;
    }
    if (!txtSig->toPlainText().isEmpty())
        txtMessage->setPlainText(txtMessage->toPlainText() + QLatin1Char('\n') + txtSig->toPlainText());
    cmdPostMessage(txtSubject->text(), txtMessage->toPlainText());
}

void frmPostMsg::logLine(const QString &line)
{
    if (!PostArticle::appendLog(nd::appFile(QStringLiteral("POST.LOG")), line))
        m.setStatus(2, QStringLiteral("Unable to write POST.LOG"));
}

bool frmPostMsg::connectTo(const QString &server)
{
    NewsTransport *t = m.session->transport();
    if (!t || t->Host() != server || t->StateText() != Connected) {
        m.session->NNTP_Disconnect();
        m.opt.NNTPServer = server;
        m.session->NNTP_Connect(false);
    }
    t = m.session->transport();
    return t && t->Host() == server && t->StateText() == Connected;
}

void frmPostMsg::cmdPostMessage(const QString &subject, const QString &messageText)
{
    if (subject.trimmed().isEmpty()) {
        m.prompter().message(QStringLiteral("Please enter subject."), Prompter::Critical);
        return;
    }
    if (!m.session)
        return;

    struct Target {
        int index;          // item of the chosen list; -1 for the current group
        QString group;
        QString server;
    };
    QList<Target> targets;
    ItemList *list = nullptr;
    if (PostScope == CurrentGroup || ReplyMode == 1) {
        targets << Target{-1, m.S.CurrentGroup.trimmed(), m.opt.NNTPServer};
    } else if (PostScope == SelectedGroups) {
        list = m.lstGroups;
        for (int i = 0; i < list->count(); ++i)
            if (list->isSelected(i))
                targets << Target{i, FavoriteRules::CleanNewsGroup(list->text(i)), m.opt.NNTPServer};
    } else {
        list = m.lstFavorites;
        for (int i = 0; i < list->count(); ++i)
            if (list->isSelected(i)) {
                const QString item = list->text(i);
                targets << Target{i, FavoriteRules::CleanNewsGroup(item), FavoriteRules::GetServerName(item)};
            }
    }
    // the list may be refilled by a reconnect; deselect by text, not by position
    QStringList itemTexts;
    if (list)
        for (const Target &t : std::as_const(targets))
            itemTexts << list->text(t.index);

    m_posting = true;
    m.S.StopRequested = false;
    cmdOK->setEnabled(false);
    PostArticle::Fields f;
    f.name = txtName->text();
    f.email = txtEmail->text();
    f.subject = subject;
    f.body = messageText;
    if (ReplyMode == 1) {
        f.references = ReplyReferences;
        f.inReplyTo = ReplyInReplyTo;
    }

    const StopLatch stop(m.shell());
    for (int k = 0; k < targets.size() && !stop.stopped(); ++k) {
        const Target &tg = targets[k];
        if (tg.group.isEmpty() || tg.server.isEmpty())
            continue;
        if (!connectTo(tg.server)) {
            setStatus(1, QStringLiteral("Unable to Post"));
            setStatus(2, QStringLiteral("Could not post to ") + tg.server);
            logLine(PostArticle::failureLine(QDateTime::currentDateTime(), tg.server, subject));
            continue;
        }
        setStatus(1, QStringLiteral("Attempting to Post"));
        setStatus(2, QString());
        f.group = tg.group;
        NewsTransportArticle article;
        for (const auto &h : PostArticle::headers(f))
            article.Message.Headers << NewsTransportHeader{h.first, h.second};
        article.Message.MIMEVersion = QStringLiteral("1.0");
        article.Message.ContentType = QStringLiteral("text");
        article.Message.Body = PostArticle::body(f.body);
        article.Message.Raw = PostArticle::build(f);
        setStatus(1, QStringLiteral("Sending Message"));
        const bool done = m.session->runTransaction([&article](NewsTransport *t) { t->Post(article); }).ok();
        NewsTransport *t = m.session->transport();
        const bool up = t && t->StateText() == Connected;
        if (done && m.S.TransportError == 0 && up) {
            if (list) {
                const int i = list->find(itemTexts[k]);
                if (i >= 0)
                    list->setSelected(i, false);
            }
            setStatus(1, QStringLiteral("Posted Message"));
            setStatus(2, QStringLiteral("Posted:") + tg.server + QStringLiteral(" (") + tg.group + QStringLiteral(")"));
            logLine(PostArticle::successLine(QDateTime::currentDateTime(), tg.server, tg.group, subject));
        } else {
            setStatus(1, QStringLiteral("Unable to Post"));
            setStatus(2, QStringLiteral("Could not post to ") + tg.server);
            logLine(PostArticle::failureLine(QDateTime::currentDateTime(), tg.server, subject));
        }
        if (m.S.TransportError == -1 && t && t->LimitExceeded())
            break;
    }

    setStatus(1, QStringLiteral("Finished Posting"));
    cmdCancel->setText(QStringLiteral("&Close"));
    cmdOK->setEnabled(true);
    m_posting = false;
    if (m_closeAfterRun)
        QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
}

void frmPostMsg::saveFields()
{
    // the main window writes Name and Email Address again at shutdown: keep it in step
    m.opt.Name = txtName->text();
    m.opt.EmailAddress = txtEmail->text();
    SettingsStore &st = m.store();
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
    if (m_posting) {
        // the run ends at its next step; the window goes once it has
        m.S.StopRequested = true;
        if (m.shell().abortTransaction)
            m.shell().abortTransaction();
        m_closeAfterRun = true;
        event->ignore();
        return;
    }
    saveFields();
    ReplyMode = 0;
    event->accept();
    emit closed();
}
