#include "gui/options/frmSetup.h"

#include "app/Constants.h"
#include "app/Paths.h"
#include "app/Shell.h"
#include "news/Session.h"
#include "servers/ServerList.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QCheckBox>
#include <QDir>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QStyle>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
const QString Title = QStringLiteral("Newsdredge!");
const QString Parent = QStringLiteral("..");
} // namespace

void frmSetup::wireCommand(Shell &sh, ServerList &servers, NewsSession *session, QWidget *parent, frmSetup **slot)
{
    sh.wireCommand(QStringLiteral("menuSetup"), [&sh, &servers, session, parent, slot] {
        if (!*slot)
            *slot = new frmSetup(sh, servers, session, parent);
        (*slot)->runModal();
    });
}

frmSetup::frmSetup(Shell &shell, ServerList &serverList, NewsSession *newsSession, QWidget *parent)
    : QDialog(parent), sh(shell), servers(serverList), session(newsSession)
{
    setObjectName(QStringLiteral("frmSetup"));
    setWindowTitle(QStringLiteral("Setup"));
    setModal(true);

    tabs = new QTabWidget(this);
    tabs->addTab(buildServerTab(), QStringLiteral("Server Settings"));
    tabs->addTab(buildOptionsTab(), QStringLiteral("Additional Settings/Proxy"));

    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdCancel = new QPushButton(QStringLiteral("Cancel"), this);
    cmdCancel->setObjectName(QStringLiteral("cmdCancel"));
    // Enter is handled per control (list and minimum groups act as OK), not by a default button
    for (QPushButton *b : {cmdOK, cmdCancel}) {
        b->setAutoDefault(false);
        b->setDefault(false);
    }
    connect(cmdOK, &QPushButton::clicked, this, &frmSetup::cmdOK_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmSetup::cmdCancel_Click);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cmdCancel);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addLayout(buttons);
    resize(640, 540);

    // Cancel, Escape and closing the window keep none of the server list's edits
    connect(this, &QDialog::rejected, this, &frmSetup::restoreServers);
    connect(&servers, &ServerList::captionChanged, frameServers, &QGroupBox::setTitle);
    connect(&servers, &ServerList::currentServerChanged, this, [this](int index) {
        if (index >= 0)
            lstServs->scrollTo(servers.lstServs->index(index));
        lstServs_Click(index);
    });
    connect(&servers, &ServerList::viewHidden, lstServs, [this](bool hidden) { lstServs->setVisible(!hidden); });
    connect(&servers, &ServerList::viewFrozen, lstServs, [this](bool frozen) { lstServs->setUpdatesEnabled(!frozen); });
    connect(&sh, &Shell::shuttingDown, this, [this] {
        if (isVisible())
            reject();
    });
}

QWidget *frmSetup::buildServerTab()
{
    auto *page = new QWidget(this);
    frameServers = new QGroupBox(QStringLiteral("NNTP Servers (0)"), page);
    frameServers->setObjectName(QStringLiteral("frameServers"));

    serverToolbar = new QToolBar(frameServers);
    serverToolbar->setObjectName(QStringLiteral("serverToolbar"));
    serverToolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    struct B {
        const char *key;
        const char *tip;
        QStyle::StandardPixmap icon;
        void (ServerList::*run)();
        QKeySequence keys;   // toolbar buttons take no focus: the keyboard reaches them this way
    };
    const B buttons[] = {
        {"New", "Enter new server address", QStyle::SP_FileIcon, &ServerList::menuNew, QKeySequence(Qt::Key_Insert)},
        {"Find", "Find server in list", QStyle::SP_FileDialogContentsView, &ServerList::menuFind, QKeySequence(Qt::CTRL | Qt::Key_F)},
        {"Delete", "Delete server", QStyle::SP_TrashIcon, &ServerList::menuDelete, QKeySequence()},
        {"Import", "Import server addresses", QStyle::SP_DialogOpenButton, &ServerList::menuImport, QKeySequence(Qt::CTRL | Qt::Key_I)},
        {"Export", "Export server addresses", QStyle::SP_DialogSaveButton, &ServerList::menuExport, QKeySequence(Qt::CTRL | Qt::Key_E)},
        {"Download", "Download open server list", QStyle::SP_ArrowDown, &ServerList::downloadOpenServers, QKeySequence()},
    };
    for (const B &b : buttons) {
        QAction *a = serverToolbar->addAction(style()->standardIcon(b.icon), QString::fromLatin1(b.key));
        a->setObjectName(QString::fromLatin1(b.key));
        a->setToolTip(QString::fromLatin1(b.tip));
        a->setShortcut(b.keys);
        connect(a, &QAction::triggered, this, [this, run = b.run] { (servers.*run)(); });
    }

    auto *heading = new QLabel(QStringLiteral("Groups / Posting Allowed / Server  Name"), frameServers);
    lstServs = new QListView(frameServers);
    lstServs->setObjectName(QStringLiteral("lstServs"));
    lstServs->setModel(servers.lstServs);
    lstServs->setSelectionModel(servers.lstServs->selectionModel());
    lstServs->setSelectionMode(QAbstractItemView::ExtendedSelection);
    lstServs->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lstServs->setUniformItemSizes(true);
    // the status prefix lines up only in a fixed-pitch font
    lstServs->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    lstServs->installEventFilter(this);
    connect(servers.lstServs->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex &cur) {
                if (cur.isValid() && !servers.changing())
                    lstServs_Click(cur.row());
            });
    connect(lstServs, &QListView::clicked, this, [this](const QModelIndex &i) { lstServs_Click(i.row()); });
    connect(lstServs, &QListView::doubleClicked, this, [this](const QModelIndex &i) { lstServs_DblClick(i.row()); });
    auto *note = new QLabel(QStringLiteral("Please keep in mind open servers are very limited on content and postings"), frameServers);
    note->setWordWrap(true);

    auto *fl = new QVBoxLayout(frameServers);
    fl->addWidget(serverToolbar);
    fl->addWidget(heading);
    fl->addWidget(lstServs, 1);
    fl->addWidget(note);

    txtUserID = new QLineEdit(page);
    txtUserID->setObjectName(QStringLiteral("txtUserID"));
    txtPassword = new QLineEdit(page);
    txtPassword->setObjectName(QStringLiteral("txtPassword"));
    txtPassword->setEchoMode(QLineEdit::PasswordEchoOnEdit);
    for (QLineEdit *e : {txtUserID, txtPassword}) {
        e->installEventFilter(this);
        connect(e, &QLineEdit::editingFinished, this, &frmSetup::credentialsLeft);
    }
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("User ID"), txtUserID);
    form->addRow(QStringLiteral("Password"), txtPassword);

    cmdUsenet = new QPushButton(QStringLiteral("Free Full Access Usenet Account"), page);
    cmdUsenet->setObjectName(QStringLiteral("cmdUsenet"));
    cmdUsenet->setAutoDefault(false);
    connect(cmdUsenet, &QPushButton::clicked, this, [this] { sh.OpenDocument(QString::fromLatin1(nd::UrlFreeAccount)); });

    auto *l = new QVBoxLayout(page);
    l->addWidget(frameServers, 1);
    l->addLayout(form);
    l->addWidget(cmdUsenet, 0, Qt::AlignLeft);
    return page;
}

QWidget *frmSetup::buildOptionsTab()
{
    auto *page = new QWidget(this);
    QGroupBox *checks = buildOptionsBox(page);
    buildSaveFilesBox(page);
    QGroupBox *proxy = buildProxyBox(page);
    auto *right = new QVBoxLayout;
    right->addWidget(frameSaveFiles, 1);
    right->addWidget(proxy);
    auto *l = new QHBoxLayout(page);
    l->addWidget(checks);
    l->addLayout(right, 1);
    return page;
}

// The check boxes and the number boxes.
QGroupBox *frmSetup::buildOptionsBox(QWidget *page)
{
    auto check = [page](QCheckBox *&box, const char *name, const char *caption) {
        box = new QCheckBox(QString::fromLatin1(caption), page);
        box->setObjectName(QString::fromLatin1(name));
    };
    check(chkTray, "chkTray", "Minimize to System Tray");
    check(chkWebSave, "chkWebSave", "Save Web Links from messages");
    check(chkFTPSave, "chkFTPSave", "Save FTP Links from messages");
    check(chkHTTP, "chkHTTP", "Save HTTP addreseses");
    check(chkFTP, "chkFTP", "Save FTP addreseses");
    check(chkBinary, "chkBinary", "Use .binaries groups only");
    check(chkAutoLoad, "chkAutoLoad", "Auto load group list");
    check(chkFileDelete, "chkFileDelete", "Confirm file delete");
    check(chkShow, "chkShow", "Show message numbers");

    // saved the moment they are clicked
    connect(chkTray, &QCheckBox::clicked, this, [this](bool on) {
        sh.store().save(QStringLiteral("Tray"), on ? QStringLiteral("1") : QStringLiteral("0"));
    });
    connect(chkWebSave, &QCheckBox::clicked, this, [this](bool on) {
        sh.store().save(QStringLiteral("WEBSave"), on ? QStringLiteral("1") : QStringLiteral("0"));
        sh.opt.WEBSave = sh.store().getBool(QStringLiteral("WEBSave"), true);
    });
    connect(chkFTPSave, &QCheckBox::clicked, this, [this](bool on) {
        sh.store().save(QStringLiteral("FTPSave"), on ? QStringLiteral("1") : QStringLiteral("0"));
        sh.opt.FTPSave = sh.store().getBool(QStringLiteral("FTPSave"), true);
    });

    auto numberBox = [page, this](QLineEdit *&box, const char *name) {
        box = new QLineEdit(page);
        box->setObjectName(QString::fromLatin1(name));
        box->setMaximumWidth(90);
        box->installEventFilter(this);
    };
    numberBox(txtNew, "txtNew");
    numberBox(txtTimeout, "txtTimeout");
    numberBox(txtMinGroups, "txtMinGroups");
    connect(txtNew, &QLineEdit::textEdited, this, [this](const QString &text) {
        sh.store().save(QStringLiteral("NewMsgs"), text);
        bool ok = false;
        const int n = text.toInt(&ok);
        if (ok)
            sh.opt.NewMsgs = n;
    });

    auto *checks = new QGroupBox(QStringLiteral("Options"), page);
    auto *cl = new QVBoxLayout(checks);
    for (QCheckBox *c : {chkTray, chkWebSave, chkFTPSave, chkHTTP, chkFTP, chkBinary, chkAutoLoad, chkFileDelete, chkShow})
        cl->addWidget(c);
    auto *numbers = new QFormLayout;
    numbers->addRow(QStringLiteral("Only get newest messages"), txtNew);
    numbers->addRow(QStringLiteral("Server connect timeout"), txtTimeout);
    numbers->addRow(QStringLiteral("Minimum groups to be valid"), txtMinGroups);
    cl->addLayout(numbers);
    return checks;
}

// The download directory.
void frmSetup::buildSaveFilesBox(QWidget *page)
{
    frameSaveFiles = new QGroupBox(QStringLiteral("Save Files"), page);
    frameSaveFiles->setObjectName(QStringLiteral("frameSaveFiles"));
    lblDir = new QLabel(frameSaveFiles);
    lblDir->setObjectName(QStringLiteral("lblDir"));
    lblDir->setWordWrap(true);
    lblDir->setTextInteractionFlags(Qt::TextSelectableByMouse);
    dirDialog = new QListWidget(frameSaveFiles);
    dirDialog->setObjectName(QStringLiteral("dirDialog"));
    dirDialog->installEventFilter(this);
    connect(dirDialog, &QListWidget::itemActivated, this, [this](QListWidgetItem *item) {
        if (!item)
            return;
        const QString target = item->text() == Parent ? QDir(m_dirPath).absoluteFilePath(QStringLiteral(".."))
                                                      : QDir(m_dirPath).absoluteFilePath(item->text());
        dirChange(QDir::cleanPath(target));
    });
    driveDialog = new QPushButton(QStringLiteral("Choose Directory..."), frameSaveFiles);
    driveDialog->setObjectName(QStringLiteral("driveDialog"));
    driveDialog->setAutoDefault(false);
    connect(driveDialog, &QPushButton::clicked, this, &frmSetup::chooseDirectory);
    cmdDir = new QPushButton(QStringLiteral("Create Directory"), frameSaveFiles);
    cmdDir->setObjectName(QStringLiteral("cmdDir"));
    cmdDir->setAutoDefault(false);
    connect(cmdDir, &QPushButton::clicked, this, &frmSetup::cmdDir_Click);
    auto *sl = new QVBoxLayout(frameSaveFiles);
    sl->addWidget(lblDir);
    sl->addWidget(dirDialog, 1);
    auto *dirButtons = new QHBoxLayout;
    dirButtons->addWidget(driveDialog);
    dirButtons->addWidget(cmdDir);
    sl->addLayout(dirButtons);
}

QGroupBox *frmSetup::buildProxyBox(QWidget *page)
{
    auto *proxy = new QGroupBox(QStringLiteral("Proxy Server"), page);
    proxy->setObjectName(QStringLiteral("frameProxy"));
    txtProxyAddress = new QLineEdit(proxy);
    txtProxyAddress->setObjectName(QStringLiteral("txtProxyAddress"));
    txtProxyAddress->setPlaceholderText(QStringLiteral("SOCKS5 host (empty: none)"));
    txtProxyPort = new QLineEdit(QStringLiteral("1080"), proxy);
    txtProxyPort->setObjectName(QStringLiteral("txtProxyPort"));
    txtProxyPort->setMaximumWidth(90);
    txtProxyPort->installEventFilter(this);
    auto *pl = new QFormLayout(proxy);
    pl->addRow(QStringLiteral("Address"), txtProxyAddress);
    pl->addRow(QStringLiteral("Port"), txtProxyPort);
    return proxy;
}

QAction *frmSetup::serverButton(const QString &key) const
{
    return serverToolbar->findChild<QAction *>(key);
}

// ------------------------------------------------------------------ opening and closing

void frmSetup::runModal()
{
    sh.SetMenuState(nd::Cmd::Setup, false);
    Load();
    exec();
    sh.SetMenuState(nd::Cmd::Setup, true);
}

void frmSetup::openSetup()
{
    Load();
    show();
}

void frmSetup::Load()
{
    m_connectAfterClose = false;
    chkTray->setChecked(sh.store().get(QStringLiteral("Tray"), QStringLiteral("0")) == QLatin1String("1"));
    chkWebSave->setChecked(sh.store().getBool(QStringLiteral("WEBSave"), true));
    chkFTPSave->setChecked(sh.store().getBool(QStringLiteral("FTPSave"), true));
    chkHTTP->setChecked(sh.opt.SaveHTTP != 0);
    chkFTP->setChecked(sh.opt.SaveFTP != 0);
    chkBinary->setChecked(sh.opt.BinariesOnly != 0);
    chkAutoLoad->setChecked(sh.opt.AutoLoadGroups != 0);
    chkFileDelete->setChecked(sh.opt.ConfirmFileDelete != 0);
    chkShow->setChecked(sh.opt.ShowMNumbers != 0);
    txtNew->setText(sh.store().get(QStringLiteral("NewMsgs"), QStringLiteral("500")));
    txtTimeout->setText(QString::number(sh.opt.Timeout));
    txtMinGroups->setText(QString::number(sh.opt.MinimumGroups));
    txtProxyAddress->setText(sh.opt.ProxyHost);
    txtProxyPort->setText(sh.opt.ProxyPort > 0 ? QString::number(sh.opt.ProxyPort) : QStringLiteral("1080"));
    setDefaultDir();

    txtUserID->clear();
    txtPassword->clear();
    servers.loadSortAndSave();
    servers.refreshCaption();
    const int current = servers.findServer(sh.opt.NNTPServer);
    if (current >= 0)
        servers.makeCurrent(current);
    else
        servers.lstServs->setCurrentIndex(-1);
    tabs->setCurrentIndex(0);

    m_serversAtOpen.clear();
    for (int i = 0; i < servers.lstServs->count(); ++i)
        m_serversAtOpen.append({servers.lstServs->text(i), servers.lstServs->secondText(i)});
    m_serverAtOpen = sh.opt.NNTPServer;
    m_userAtOpen = sh.S.ServerUserId;
    m_passwordAtOpen = sh.S.ServerPassword;
}

void frmSetup::restoreServers()
{
    servers.lstServs->clear();
    for (const auto &item : std::as_const(m_serversAtOpen))
        servers.lstServs->add(item.first, item.second);
    // the server that was current stays the current item (the server runs start from it)
    const int current = servers.findServer(m_serverAtOpen);
    if (current >= 0)
        servers.makeCurrent(current);
    sh.opt.NNTPServer = m_serverAtOpen;
    sh.S.ServerUserId = m_userAtOpen;
    sh.S.ServerPassword = m_passwordAtOpen;
    servers.refreshCaption();
}

void frmSetup::cmdOK_Click()
{
    // a box still being edited counts as left
    if (txtUserID->isModified() || txtPassword->isModified())
        credentialsLeft();
    txtMinGroups_Validate();
    txtTimeout_Validate();
    sh.opt.ShowMNumbers = chkShow->isChecked() ? 1 : 0;
    sh.opt.SaveHTTP = chkHTTP->isChecked() ? 1 : 0;
    sh.opt.SaveFTP = chkFTP->isChecked() ? 1 : 0;
    sh.opt.AutoLoadGroups = chkAutoLoad->isChecked() ? 1 : 0;
    sh.opt.BinariesOnly = chkBinary->isChecked() ? 1 : 0;
    sh.opt.ConfirmFileDelete = chkFileDelete->isChecked() ? 1 : 0;
    sh.opt.MinimumGroups = qint32(leadingNumber(txtMinGroups->text()));
    sh.opt.Timeout = qint32(leadingNumber(txtTimeout->text()));

    const QString proxyHost = txtProxyAddress->text().trimmed();
    const qint64 proxyPort = leadingNumber(txtProxyPort->text());
    const qint32 port = proxyPort > 0 && proxyPort <= 65535 ? qint32(proxyPort) : 1080;
    const bool proxyChanged = proxyHost != sh.opt.ProxyHost || (!proxyHost.isEmpty() && port != sh.opt.ProxyPort);
    sh.opt.ProxyHost = proxyHost;
    sh.opt.ProxyPort = port;
    // a new proxy takes effect on the next session; an idle transport is replaced at once
    if (proxyChanged && session && !session->transactionRunning() && isDisconnected())
        session->CreateTransport();

    servers.save();
    accept();
}

void frmSetup::cmdCancel_Click()
{
    reject();
}

// ------------------------------------------------------------------ server list events

bool frmSetup::isDisconnected() const
{
    const NewsTransport *t = session ? session->transport() : nullptr;
    return !t || t->State() == NewsTransport::StateDisconnected;
}

bool frmSetup::hasCurrentServer() const
{
    return servers.lstServs->currentIndex() >= 0;
}

void frmSetup::noServerSelected()
{
    if (m_warning)
        return;
    m_warning = true;
    sh.prompter().message(QStringLiteral("Please select server before entering ID and Password information"),
                          Prompter::Information, Prompter::Ok);
    m_warning = false;
}

void frmSetup::lstServs_Click(int index)
{
    if (index < 0 || index >= servers.lstServs->count()) {
        txtUserID->clear();
        txtPassword->clear();
        return;
    }
    sh.opt.NNTPServer = ItemList::serverNameOf(servers.lstServs->text(index));
    txtUserID->clear();
    txtPassword->clear();
    const QString data = servers.lstServs->secondText(index);
    if (!data.isEmpty()) {
        const auto cred = ServerList::splitCredentials(data);
        txtUserID->setText(cred.first);
        txtPassword->setText(cred.second);
    }
    txtUserID->setModified(false);
    txtPassword->setModified(false);
}

void frmSetup::lstServs_DblClick(int index)
{
    if (index < 0 || index >= servers.lstServs->count())
        return;
    servers.makeCurrent(index);
    cmdOK_Click();
    if (!session)
        return;
    // connect once the dialog has closed
    QTimer::singleShot(0, session, [s = session, &shell = sh] {
        shell.S.StopRequested = false;
        s->NNTP_Connect(true);
    });
}

void frmSetup::credentialsLeft()
{
    if (!hasCurrentServer())
        return;
    const int index = servers.lstServs->currentIndex();
    servers.setCredentials(index, txtUserID->text(), txtPassword->text());
    servers.lstServs->setSelected(index, true);
    txtUserID->setModified(false);
    txtPassword->setModified(false);
}

// ------------------------------------------------------------------ number boxes

bool frmSetup::acceptsNewChar(QChar c)
{
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c.unicode() == 8;
}

bool frmSetup::acceptsNumberChar(QChar c)
{
    const ushort u = c.unicode();
    return u == 8 || u == 13 || u == 46 || (u >= 48 && u <= 75);
}

qint64 frmSetup::leadingNumber(const QString &text)
{
    const QString t = text.trimmed();
    qint64 v = 0;
    for (QChar c : t) {
        if (!c.isDigit() || c.unicode() > 127)
            break;
        if (v > 100000000000LL)
            break;
        v = v * 10 + (c.unicode() - '0');
    }
    return v;
}

void frmSetup::txtMinGroups_Validate()
{
    if (leadingNumber(txtMinGroups->text()) > 100000)
        txtMinGroups->setText(QStringLiteral("100000"));
}

void frmSetup::txtTimeout_Validate()
{
    bool ok = false;
    const double v = txtTimeout->text().trimmed().toDouble(&ok);
    // a time-out under one second is taken as none given: 0 would also mark the settings as
    // never loaded and keep them from being written at shutdown
    if (!ok || v > 32767 || v < 1)
        txtTimeout->setText(QStringLiteral("255"));
}

bool frmSetup::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (watched == txtUserID || watched == txtPassword) {
        if ((type == QEvent::FocusIn || type == QEvent::KeyPress) && !hasCurrentServer()) {
            if (type == QEvent::KeyPress) {
                auto *k = static_cast<QKeyEvent *>(event);
                if (k->key() == Qt::Key_Tab || k->key() == Qt::Key_Backtab || k->key() == Qt::Key_Escape)
                    return false;
            }
            noServerSelected();
            if (type == QEvent::FocusIn)
                QTimer::singleShot(0, lstServs, [v = lstServs] { v->setFocus(); });
            return type == QEvent::KeyPress;
        }
        return false;
    }
    if (type == QEvent::KeyPress) {
        auto *k = static_cast<QKeyEvent *>(event);
        const bool enter = k->key() == Qt::Key_Return || k->key() == Qt::Key_Enter;
        if (watched == lstServs) {
            const bool shift = k->modifiers() & Qt::ShiftModifier;
            if (k->key() == Qt::Key_Delete) {
                servers.menuDelete();
                return true;
            }
            if ((k->key() == Qt::Key_Home || k->key() == Qt::Key_End) && !shift) {
                if (servers.lstServs->count() > 0)
                    servers.makeCurrent(k->key() == Qt::Key_Home ? 0 : servers.lstServs->count() - 1);
                return true;
            }
            if (enter) {
                cmdOK_Click();
                return true;
            }
            if (k->key() == Qt::Key_Escape) {
                cmdCancel_Click();
                return true;
            }
            if (k->key() == Qt::Key_A && (k->modifiers() & Qt::ControlModifier)) {
                servers.lstServs->selectAll();
                return true;
            }
            return false;
        }
        if (watched == dirDialog && k->key() == Qt::Key_Delete) {
            deleteDirectory();
            return true;
        }
        if (watched == txtMinGroups && enter) {
            cmdOK_Click();
            return true;
        }
        const QString text = k->text();
        if (text.size() == 1 && !enter) {
            const QChar c = text.at(0);
            // editing keys (arrows, Delete) carry no text and pass
            if (c.unicode() >= 32 || c.unicode() == 8) {
                if (watched == txtNew || watched == txtProxyPort)
                    return !acceptsNewChar(c);
                if (watched == txtTimeout || watched == txtMinGroups)
                    return !acceptsNumberChar(c);
            }
        }
        if (watched == txtTimeout && enter)
            return true;   // taken, nothing more
        return false;
    }
    if (type == QEvent::FocusOut) {
        if (watched == txtMinGroups)
            txtMinGroups_Validate();
        else if (watched == txtTimeout)
            txtTimeout_Validate();
    }
    return QDialog::eventFilter(watched, event);
}

// ------------------------------------------------------------------ download directory

QString frmSetup::addPath(const QString &path)
{
    return path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
}

void frmSetup::setDefaultDir()
{
    const QString defaultDir = nd::appFile(QStringLiteral("Download"));
    QString path = sh.store().get(QStringLiteral("DestDir"), defaultDir).trimmed();
    if (!QDir(defaultDir).exists())
        QDir().mkpath(defaultDir);
    if (path.isEmpty()) {
        path = defaultDir + QLatin1Char('/');
        sh.store().save(QStringLiteral("DestDir"), path);
    }
    if (QDir::isRelativePath(path))
        path = QDir(nd::appDir()).absoluteFilePath(path);
    path = addPath(path);
    m_dirPath = path;
    sh.opt.DestDir = path;
    fillDirList();
}

void frmSetup::fillDirList()
{
    lblDir->setText(m_dirPath);
    dirDialog->clear();
    QDir dir(m_dirPath);
    if (!dir.isRoot())
        dirDialog->addItem(Parent);
    if (!dir.exists()) {
        lblDir->setText(m_dirPath + QStringLiteral("  (does not exist yet)"));
        return;
    }
    dirDialog->addItems(dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase));
}

void frmSetup::dirChange(const QString &path)
{
    m_dirPath = addPath(path);
    sh.opt.DestDir = m_dirPath;
    sh.store().save(QStringLiteral("DestDir"), m_dirPath);
    fillDirList();
}

void frmSetup::driveChange(const QString &path)
{
    const QFileInfo fi(path);
    if (!fi.isDir() || !fi.isReadable() || !fi.isExecutable()) {
        sh.prompter().message(QStringLiteral("Invalid Drive or Drive Unavailable."), Prompter::Critical, Prompter::Ok);
        return;
    }
    dirChange(fi.absoluteFilePath());
}

void frmSetup::chooseDirectory()
{
    const QString chosen = sh.prompter().existingDirectory(QStringLiteral("Save Files"), m_dirPath);
    if (!chosen.isEmpty())
        driveChange(chosen);
}

void frmSetup::cmdDir_Click()
{
    const auto answer = sh.prompter().input(QStringLiteral("Enter Directory Name:"), QStringLiteral("Create Directory:"));
    if (!answer || answer->trimmed().isEmpty())
        return;
    const QString name = answer->trimmed();
    const QString target = addPath(m_dirPath) + name;
    if (QFileInfo::exists(target) || !QDir().mkdir(target)) {
        sh.prompter().message(QStringLiteral("Could not create directory"), Prompter::Critical, Prompter::Ok);
        return;
    }
    fillDirList();
}

void frmSetup::deleteDirectory()
{
    QListWidgetItem *item = dirDialog->currentItem();
    if (!item || item->text() == Parent)
        return;
    const QString target = addPath(m_dirPath) + item->text();
    if (!QDir().rmdir(target)) {
        sh.prompter().message(QStringLiteral("Could not delete %1: only an empty directory can be deleted.").arg(target),
                              Prompter::Exclamation, Prompter::Ok, Title);
        return;
    }
    fillDirList();
}
