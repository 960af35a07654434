#include "gui/app/frmMain.h"

#include "app/Constants.h"
#include "app/Core.h"
#include "news/Session.h"
#include "app/Paths.h"
#include "gui/app/StartupDialogs.h"
#include "app/Wait.h"
#include "messages/MessageGrid.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGroupBox>
#include <QScrollBar>
#include <QHeaderView>
#include <QLabel>
#include <QListView>
#include <QMenuBar>
#include <QPainter>
#include <QProgressBar>
#include <QScreen>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindowStateChangeEvent>
#include <optional>

namespace {

// The command each toolbar key stands for.
QString menuOfKey(const QString &key)
{
    static const QHash<QString, QString> m = {
        {"Setup", "menuSetup"}, {"Groups", "menuGroup"}, {"Stop", "menuStop"},
        {"Connect", "menuConnect"}, {"Disconnect", "menuConnect"}, {"Download", "menuDownload"},
        {"View", "menuView"}, {"Post", "menuPostC"}, {"Links", "Links"}};
    return m.value(key);
}

QIcon appIcon()
{
    static QIcon icon = [] {
        QPixmap pm(32, 32);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        p.setRenderHint(QPainter::Antialiasing);
        p.setBrush(QColor(30, 90, 160));
        p.setPen(Qt::NoPen);
        p.drawRoundedRect(1, 1, 30, 30, 6, 6);
        p.setPen(Qt::white);
        QFont f = p.font();
        f.setBold(true);
        f.setPixelSize(20);
        p.setFont(f);
        p.drawText(QRect(0, 0, 32, 32), Qt::AlignCenter, QStringLiteral("N"));
        return QIcon(pm);
    }();
    return icon;
}

} // namespace

namespace {
// The message grid selects whole rows: moving to a row scrolls it into view vertically but
// leaves the horizontal position alone, so clicking a long subject does not push the date
// column out of sight.
class RowGridView : public QTableView {
public:
    using QTableView::QTableView;
    void scrollTo(const QModelIndex &index, ScrollHint hint = EnsureVisible) override
    {
        const int x = horizontalScrollBar()->value();
        QTableView::scrollTo(index, hint);
        horizontalScrollBar()->setValue(x);
    }
};
} // namespace

// The main window's presentation of the shell: status panels, progress bar, commands, captions.
class GuiShell final : public Shell {
public:
    GuiShell(frmMain &w, Prompter *prompter) : Shell(prompter, false), w(w) {}

    void setStatus(int panel, const QString &text) override { w.setStatus(panel, text); }
    QString status(int panel) const override { return w.status(panel); }
    void setProgressRange(int minimum, int maximum) override { w.progBar->setRange(minimum, maximum); }
    void setProgress(int value) override { w.progBar->setValue(value); }
    int progress() const override { return w.progBar->value(); }
    int progressMinimum() const override { return w.progBar->minimum(); }
    int progressMaximum() const override { return w.progBar->maximum(); }
    void SetMenuState(nd::Cmd command, bool enabled) override { w.SetMenuState(command, enabled); }
    bool menuState(nd::Cmd command) const override
    {
        QAction *a = w.action(nd::commandName(command));
        return a && a->isEnabled();
    }
    void setConnectedLook(bool connected) override
    {
        const QString key = connected ? QStringLiteral("Disconnect") : QStringLiteral("Connect");
        w.setToolKey(connected ? QStringLiteral("Connect") : QStringLiteral("Disconnect"), key);
        if (QAction *b = w.toolButton(key))
            b->setToolTip(key);
        if (QAction *a = w.action(QStringLiteral("menuConnect")))
            a->setText(connected ? QStringLiteral("&Disconnect") : QStringLiteral("&Connect to Server"));
        if (!connected) {
            if (QAction *post = w.action(QStringLiteral("menuPost")))
                post->setVisible(true);
            if (QAction *b = w.toolButton(QStringLiteral("Post")))
                b->setVisible(true);
        }
    }
    void UpdateCaption(nd::Caption caption) override { w.UpdateCaption(caption); }
    void setViewEnabled(nd::View view, bool enabled) override
    {
        if (QWidget *v = viewOf(view))
            v->setEnabled(enabled);
    }
    bool viewEnabled(nd::View view) const override
    {
        QWidget *v = viewOf(view);
        return v && v->isEnabled();
    }
    void setBusy(bool busy) override { w.setBusy(busy); }
    void OpenDocument(const QString &target) override { w.OpenDocument(target); }

protected:
    void commandWired(const QString &menuName) override { w.commandWired(menuName); }

private:
    QWidget *viewOf(nd::View view) const
    {
        switch (view) {
        case nd::View::Groups: return w.lstGroupsView;
        case nd::View::Favorites: return w.lstFavoritesView;
        case nd::View::Files: return w.lstFilesView;
        case nd::View::Addresses: return w.lstHTTPView;
        case nd::View::Messages: return w.MSHResults;
        }
        return nullptr;
    }

    frmMain &w;
};

frmMain::frmMain(Prompter *prompter, Options options)
    : m_shell(std::make_unique<GuiShell>(*this, prompter)),
      m_core(std::make_unique<Core>(*m_shell)), S(m_shell->S), opt(m_shell->opt),
      m_options(options)
{
    setObjectName(QStringLiteral("frmMain"));
    setWindowIcon(appIcon());
    buildWidgets();
    buildMenus();
    buildToolbar();

    Timer1 = new QTimer(this);
    Timer1->setInterval(1000);
    connect(Timer1, &QTimer::timeout, this, &frmMain::onTick);
    Timer1->start();

    TrayIcon1 = new QSystemTrayIcon(this);
    connect(TrayIcon1, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason) {
        // restore the window from the tray
        setWindowState(windowState() & ~Qt::WindowMinimized);
        if (isHidden()) {
            show();
            raise();
            activateWindow();
        }
    });


    wireCommand(QStringLiteral("menuExit"), [this] { close(); });
    wireCommand(QStringLiteral("Links"), [this] { OpenDocument(nd::appFile(QStringLiteral("UsenetHTTP.htm"))); });
    wireCommand(QStringLiteral("menuStop"), [this] { StopOperation(); });
    wireCommand(QStringLiteral("menuAbout"), [this] { showAbout(); });
    wireCommand(QStringLiteral("menuQuickHelp"), [this] { showQuickHelp(false); });
    wireCommand(QStringLiteral("menuSearch"), [this] { OpenDocument(QString::fromLatin1(nd::UrlMediaSearch)); });
    wireCommand(QStringLiteral("menuDemo"), [this] { OpenDocument(QString::fromLatin1(nd::UrlDemo)); });
    wireCommand(QStringLiteral("menuSupport"), [this] { OpenDocument(QString::fromLatin1(nd::UrlSupport)); });
    wireCommand(QStringLiteral("menuVisit"), [this] { OpenDocument(QString::fromLatin1(nd::UrlHome)); });

    nd::setWaitEndedHook([this] {
        if (m_closePending) {
            m_closePending = false;
            close();
        }
    });

    createControllers();
    setStatus(1, QStringLiteral("Click on CONNECT to connect to Server"));
    SetMenuState(nd::Cmd::Stop, false);   // nothing to stop yet
}

frmMain::~frmMain()
{
    nd::setWaitEndedHook(nullptr);
    detachControllers();
    destroyControllers();
}

// ------------------------------------------------------------------ layout

void frmMain::buildWidgets()
{
    buildListViews();
    buildGridView();
    buildPanes();
    buildStatusBar();
}

// The four list views over the core's lists, and the two captions above the left ones.
void frmMain::buildListViews()
{
    auto makeListView = [this](ItemList *model, const QString &name) {
        auto *v = new QListView(this);
        v->setObjectName(name);
        v->setModel(model);
        v->setSelectionModel(model->selectionModel());
        v->setUniformItemSizes(true);
        v->setSelectionMode(QAbstractItemView::ExtendedSelection);
        v->setEditTriggers(QAbstractItemView::NoEditTriggers);
        return v;
    };

    lstGroups = m_core->lstGroups;
    lstFavorites = m_core->lstFavorites;
    lstFiles = m_core->lstFiles;
    lstHTTP = m_core->lstHTTP;
    lstMsgBuffer = m_core->lstMsgBuffer;

    lblGrp = new QLabel(QStringLiteral("  Group List"), this);
    lblGrp->setObjectName(QStringLiteral("lblGrp"));
    lblFav = new QLabel(this);
    lblFav->setObjectName(QStringLiteral("lblFav"));
    // the captions name a server, a group or a favourites file: they wrap rather than be cut
    lblGrp->setWordWrap(true);
    lblFav->setWordWrap(true);
    // a long group name in the caption is cut off rather than widening the left column
    for (QLabel *l : {lblGrp, lblFav})
        l->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    lstGroupsView = makeListView(lstGroups, QStringLiteral("lstGroups"));
    lstFavoritesView = makeListView(lstFavorites, QStringLiteral("lstFavorites"));
    lstFilesView = makeListView(lstFiles, QStringLiteral("lstFiles"));
    lstHTTPView = makeListView(lstHTTP, QStringLiteral("lstHTTP"));
}

// The message grid's view: whole rows, fixed row height, the mark and number columns hidden.
void frmMain::buildGridView()
{
    grid = m_core->grid;
    MSHResults = new RowGridView(this);
    MSHResults->setObjectName(QStringLiteral("MSHResults"));
    MSHResults->setModel(grid);
    MSHResults->setSelectionModel(m_core->gridSelection);
    MSHResults->setSelectionBehavior(QAbstractItemView::SelectRows);
    MSHResults->setSelectionMode(QAbstractItemView::ContiguousSelection);
    MSHResults->setEditTriggers(QAbstractItemView::NoEditTriggers);
    MSHResults->setWordWrap(false);
    MSHResults->setAlternatingRowColors(true);
    MSHResults->verticalHeader()->setVisible(false);
    MSHResults->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    MSHResults->verticalHeader()->setDefaultSectionSize(MSHResults->fontMetrics().height() + 4);
    MSHResults->horizontalHeader()->setSectionsClickable(true);
    MSHResults->horizontalHeader()->setHighlightSections(false);
    MSHResults->horizontalHeader()->setStretchLastSection(false);
    const int widths[MessageGrid::Cols] = {70, 80, 420, 200, 160, 160, 130, 160, 0};
    for (int c = 0; c < MessageGrid::Cols; ++c)
        MSHResults->setColumnWidth(c, widths[c]);
    MSHResults->setColumnHidden(MessageGrid::ColMark, true);
    MSHResults->setColumnHidden(MessageGrid::ColArticle, true);   // article numbers are shown on request
}

// Groups and favourites on the left; the grid over saved files, the preview and the addresses.
void frmMain::buildPanes()
{
    auto *groupsPane = new QWidget(this);
    auto *gl = new QVBoxLayout(groupsPane);
    gl->setContentsMargins(0, 0, 0, 0);
    gl->setSpacing(2);
    gl->addWidget(lblGrp);
    gl->addWidget(lstGroupsView);
    auto *favPane = new QWidget(this);
    auto *fl = new QVBoxLayout(favPane);
    fl->setContentsMargins(0, 0, 0, 0);
    fl->setSpacing(2);
    fl->addWidget(lblFav);
    fl->addWidget(lstFavoritesView);

    auto *left = new QSplitter(Qt::Vertical, this);
    left->addWidget(groupsPane);
    left->addWidget(favPane);
    left->setStretchFactor(0, 3);
    left->setStretchFactor(1, 2);

    frameFiles = new QGroupBox(QStringLiteral("Saved Files (0)"), this);
    frameFiles->setObjectName(QStringLiteral("frameFiles"));
    auto *ffl = new QVBoxLayout(frameFiles);
    ffl->setContentsMargins(4, 4, 4, 4);
    ffl->addWidget(lstFilesView);

    Picture1 = new QLabel(this);
    Picture1->setObjectName(QStringLiteral("Picture1"));
    Picture1->setAlignment(Qt::AlignCenter);
    Picture1->setMinimumSize(120, 90);
    Picture1->setFrameShape(QFrame::StyledPanel);
    Picture1->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Ignored);

    frameHTTP = new QGroupBox(QStringLiteral("Web/FTP Addresses (0)"), this);
    frameHTTP->setObjectName(QStringLiteral("frameHTTP"));
    auto *fhl = new QVBoxLayout(frameHTTP);
    fhl->setContentsMargins(4, 4, 4, 4);
    fhl->addWidget(lstHTTPView);

    auto *bottom = new QSplitter(Qt::Horizontal, this);
    bottom->addWidget(frameFiles);
    bottom->addWidget(Picture1);
    bottom->addWidget(frameHTTP);
    bottom->setStretchFactor(0, 2);
    bottom->setStretchFactor(1, 2);
    bottom->setStretchFactor(2, 2);

    auto *right = new QSplitter(Qt::Vertical, this);
    right->addWidget(MSHResults);
    right->addWidget(bottom);
    right->setStretchFactor(0, 3);
    right->setStretchFactor(1, 1);

    auto *main = new QSplitter(Qt::Horizontal, this);
    main->addWidget(left);
    main->addWidget(right);
    main->setStretchFactor(0, 1);
    main->setStretchFactor(1, 3);
    main->setSizes({300, 700});
    setCentralWidget(main);
}

// The three status panels and the progress bar.
void frmMain::buildStatusBar()
{
    for (int i = 0; i < 3; ++i) {
        m_panels[i] = new QLabel(this);
        m_panels[i]->setObjectName(QStringLiteral("statbarPanel%1").arg(i + 1));
        m_panels[i]->setMinimumWidth(i == 0 ? 260 : 90);
        statusBar()->addWidget(m_panels[i], i == 1 ? 2 : 1);
    }
    statusBar()->setObjectName(QStringLiteral("statbar"));
    progBar = new QProgressBar(this);
    progBar->setObjectName(QStringLiteral("progBar"));
    progBar->setMaximumWidth(180);
    progBar->setTextVisible(false);
    progBar->setRange(0, 100);
    progBar->setValue(0);
    statusBar()->addPermanentWidget(progBar);
}

struct MenuEntry {
    const char *name;
    const char *caption;
};

void frmMain::buildMenus()
{
    auto addItem = [this](QMenu *menu, const char *name, const char *caption) {
        QAction *a = menu->addAction(QString::fromUtf8(caption));
        a->setObjectName(QString::fromLatin1(name));
        a->setEnabled(false);
        m_actions.insert(a->objectName(), a);
        connect(a, &QAction::triggered, this, [this, n = a->objectName()] {
            if (auto h = m_shell->handler(n))
                h();
        });
        return a;
    };
    auto addMenu = [this](QMenu *parent, const char *name, const char *caption) {
        QMenu *m = parent ? parent->addMenu(QString::fromUtf8(caption)) : menuBar()->addMenu(QString::fromUtf8(caption));
        m->setObjectName(QString::fromLatin1(name));
        m_actions.insert(m->objectName(), m->menuAction());
        return m;
    };

    QMenu *file = addMenu(nullptr, "menuFile", "&File");
    QMenu *fav = addMenu(file, "menuFav", "&Favorites (Subscribed)");
    addItem(fav, "menuNew", "&New Favorites File");
    addItem(fav, "menuLoad", "&Load Favorites");
    addItem(fav, "menuSave", "S&ave Favorites");
    file->addSeparator();
    addItem(file, "menuSetup", "&Setup");
    file->addSeparator();
    addItem(file, "menuExit", "E&xit");

    QMenu *edit = addMenu(nullptr, "menuEdit", "&Edit");
    addItem(edit, "menuFind", "&Find")->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
    addItem(edit, "menuFindNext", "Find &Next");

    QMenu *conn = addMenu(nullptr, "menuConnection", "&Connection");
    addItem(conn, "menuConnect", "&Connect to Server");
    addItem(conn, "menuGroup", "&Groups");
    addItem(conn, "menuStop", "&Stop Transaction");
    conn->addSeparator();
    addItem(conn, "menuSearch", "&Search for Media");

    QMenu *ret = addMenu(nullptr, "menuretreive", "&Retrieve");
    addItem(ret, "menuDownloadAll", "&All Attachments");
    addItem(ret, "menuDownload", "from Selected Messages");
    addItem(ret, "menuDowloadAllF", "from Selected &Favorite Groups");
    ret->addSeparator();
    addItem(ret, "menuView", "&View (Download) Attachment (right-Click)");
    ret->addSeparator();
    addItem(ret, "menuRefreshM", "&Refresh Message List");
    addItem(ret, "menuRefreshG", "Refresh &Group List");
    ret->addSeparator();
    addItem(ret, "menuPreviewL", "&Large Image Preview");
    QAction *preview = addItem(ret, "menuPreview", "&Preview Incoming Images");
    preview->setCheckable(true);
    preview->setChecked(true);

    QMenu *post = addMenu(nullptr, "menuPost", "&Post");
    addItem(post, "menuPostC", "to Current Group");
    addItem(post, "menuPostG", "to Selected Groups");
    addItem(post, "menuPostF", "to Selected &Favorites");

    QMenu *adv = addMenu(nullptr, "menuAdvanced", "&Advanced");
    QMenu *findGroup = addMenu(adv, "menuFindGroup", "Find &Group");
    addItem(findGroup, "menuScan", "in &Selected Servers (add to Favorites)");
    addItem(findGroup, "menuScanE", "in Se&lected Servers (add to Favories Exclusively)");
    QMenu *web = addMenu(adv, "menuWeb", "Find && Web/FTP Addresses");
    addItem(web, "menuWebC", "in &Current Group");
    addItem(web, "menuWebG", "in &Selected Groups");
    addItem(web, "menuWebF", "in Selected &Favorites");
    addItem(web, "menuWebM", "in Selected &Messages");
    QMenu *serv = addMenu(adv, "menuFindServers", "F&ind Open Servers");
    addItem(serv, "menuServC", "in &Current Group");
    addItem(serv, "menuServG", "in &Selected Groups");
    addItem(serv, "menuServF", "in Selected &Favorites");
    addItem(serv, "menuServS", "in S&elected Servers");
    QMenu *email = addMenu(adv, "menuEmail", "Find &Email Addresses");
    addItem(email, "menuEmailC", "in &Current Group");
    addItem(email, "menuEmailG", "in &Selected Groups");
    addItem(email, "menuEmailF", "in Selected &Favorites");
    addItem(email, "menuEmailS", "in S&elected Servers");
    adv->addSeparator();
    addItem(adv, "menuGen", "&Generate List of Groups on Selected Servers");
    addItem(adv, "menuAuto", "&Schedule Auto Download");
    addItem(adv, "menuCheck", "Check and Verify &Selected Servers");

    QMenu *help = addMenu(nullptr, "menuHelp", "&Help");
    addItem(help, "menuQuickHelp", "&Quick Help");
    addItem(help, "menuDemo", "&Online Demo");
    addItem(help, "menuSupport", "&Support");
    addItem(help, "menuVisit", QStringLiteral("&Visit %1").arg(QLatin1String(nd::MakerName)).toUtf8().constData());
    help->addSeparator();
    addItem(help, "menuAbout", "&About");
}

void frmMain::buildToolbar()
{
    Toolbar1 = addToolBar(QStringLiteral("Toolbar1"));
    Toolbar1->setObjectName(QStringLiteral("Toolbar1"));
    Toolbar1->setMovable(false);
    Toolbar1->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    struct B {
        int pos;
        const char *key;
        const char *tip;
        QStyle::StandardPixmap icon;
        std::optional<nd::Cmd> command;   // the command whose state the button follows
    };
    const B buttons[] = {
        {1, "Setup", "Setup options", QStyle::SP_FileDialogDetailedView, nd::Cmd::Setup},
        {3, "Groups", "Show group list", QStyle::SP_FileDialogListView, nd::Cmd::Groups},
        {4, "Stop", "Stop", QStyle::SP_BrowserStop, nd::Cmd::Stop},
        {5, "Connect", "Connect to server", QStyle::SP_DriveNetIcon, nd::Cmd::Connect},
        {7, "Download", "Download message attachment", QStyle::SP_ArrowDown, nd::Cmd::Download},
        {9, "View", "View message", QStyle::SP_FileDialogContentsView, nd::Cmd::View},
        {10, "Post", "Post message", QStyle::SP_FileDialogNewFolder, nd::Cmd::PostCurrent},
        {12, "Links", "Show links", QStyle::SP_DirLinkIcon, std::nullopt},
    };
    int pos = 1;
    for (const B &b : buttons) {
        while (pos < b.pos) {
            Toolbar1->addSeparator();
            ++pos;
        }
        QAction *a = Toolbar1->addAction(style()->standardIcon(b.icon), QString::fromLatin1(b.key));
        a->setObjectName(QStringLiteral("tb") + QString::fromLatin1(b.key));
        a->setToolTip(QString::fromLatin1(b.tip));
        a->setData(QString::fromLatin1(b.key));
        a->setEnabled(false);
        m_buttons.insert(QString::fromLatin1(b.key), a);
        if (b.command)
            m_buttonOf.insert(int(*b.command), a);
        connect(a, &QAction::triggered, this, [this, a] { toolbarClick(a->data().toString()); });
        ++pos;
    }
}

// ------------------------------------------------------------------ commands

QAction *frmMain::action(const QString &name) const
{
    return m_actions.value(name);
}

QAction *frmMain::toolButton(const QString &key) const
{
    return m_buttons.value(key);
}

QString frmMain::toolKey(QAction *button) const
{
    return button ? button->data().toString() : QString();
}

void frmMain::setToolKey(const QString &oldKey, const QString &newKey)
{
    QAction *a = m_buttons.take(oldKey);
    if (!a)
        return;
    a->setData(newKey);
    a->setText(newKey);
    // the Connect button shows what a click does
    if (newKey == QLatin1String("Disconnect"))
        a->setIcon(style()->standardIcon(QStyle::SP_DialogCloseButton));
    else if (newKey == QLatin1String("Connect"))
        a->setIcon(style()->standardIcon(QStyle::SP_DriveNetIcon));
    m_buttons.insert(newKey, a);
}

Shell &frmMain::shell() { return *m_shell; }
SettingsStore &frmMain::store() { return m_shell->store(); }
Prompter &frmMain::prompter() { return m_shell->prompter(); }
void frmMain::setPrompter(Prompter *p) { m_shell->setPrompter(p); }
bool frmMain::commandBuilt(const QString &menuName) const { return m_shell->commandBuilt(menuName); }
int frmMain::serverCount() const { return m_shell->serverCount(); }
void frmMain::setServerCount(int n) { m_shell->setServerCount(n); }

void frmMain::wireCommand(const QString &menuName, std::function<void()> handler)
{
    m_shell->wireCommand(menuName, std::move(handler));
}

// A command switched off before its procedure was attached (the disconnected state is set up
// before the areas wire their commands) stays off until it is switched on.
static const char *const SwitchedOff = "ndSwitchedOff";

void frmMain::commandWired(const QString &menuName)
{
    if (QAction *a = action(menuName))
        a->setEnabled(!a->property(SwitchedOff).toBool());
    for (QAction *b : std::as_const(m_buttons))
        if (menuOfKey(b->data().toString()) == menuName)
            b->setEnabled(!b->property(SwitchedOff).toBool());
}

void frmMain::toolbarClick(const QString &key)
{
    S.StopRequested = false;
    // Stop works whatever the command's state; the other buttons run their command while it is on
    if (key == QLatin1String("Stop")) {
        StopOperation();
        return;
    }
    const QString n = menuOfKey(key);
    if (n.isEmpty())
        return;
    QAction *a = action(n);
    if (a ? a->isEnabled() : commandBuilt(n))
        if (auto h = m_shell->handler(n))
            h();
}

// ------------------------------------------------------------------ helpers

void frmMain::setStatus(int panel, const QString &text)
{
    if (panel < 1 || panel > 3)
        return;
    m_panels[panel - 1]->setText(text);
    m_panels[panel - 1]->setToolTip(text);   // a long text is cut at the panel's edge
}

QString frmMain::status(int panel) const
{
    return panel >= 1 && panel <= 3 ? m_panels[panel - 1]->text() : QString();
}

void frmMain::UpdateCaption(nd::Caption caption)
{
    using nd::Caption;
    switch (caption) {
    case Caption::Favorites:
        lblFav->setText(QStringLiteral("  Favorite Groups [%1] (%2)").arg(S.FavoritesShortName).arg(lstFavorites->count()));
        break;
    case Caption::Messages:
        lblGrp->setText(QStringLiteral("  Available Messages (%1)  Group : %2").arg(grid->lastMessageRow()).arg(S.CurrentGroup));
        break;
    case Caption::Groups:
        lblGrp->setText(QStringLiteral("  Available Groups : %1 (%2)").arg(opt.NNTPServer).arg(lstGroups->count()));
        break;
    case Caption::SavedFiles:
        frameFiles->setTitle(QStringLiteral("Saved Files (%1)").arg(lstFiles->count()));
        break;
    case Caption::WebAddresses:
        frameHTTP->setTitle(QStringLiteral("Web/FTP Addresses (%1)").arg(lstHTTP->count()));
        break;
    case Caption::EmailAddresses:
        frameHTTP->setTitle(QStringLiteral("Email Addresses (%1)").arg(lstHTTP->count()));
        break;
    case Caption::ServerAddresses:
        frameHTTP->setTitle(QStringLiteral("Server Addresses (%1)").arg(lstHTTP->count()));
        break;
    case Caption::Found:
        frameHTTP->setTitle(QStringLiteral("Found/Status (%1)").arg(lstHTTP->count()));
        break;
    case Caption::Checking:
        lblFav->setText(QStringLiteral("  Checking %1 Servers").arg(lstFavorites->count()));
        break;
    case Caption::ServerCount:
        m_setupServerCaption = QStringLiteral("NNTP Servers (%1)").arg(m_shell->serverCount());
        break;
    case Caption::Title:
        setWindowTitle(QStringLiteral("Newsdredge! v%1 (%2) ").arg(QLatin1String(nd::VersionText), opt.NNTPServer));
        break;
    }
}

void frmMain::SetMenuState(nd::Cmd command, bool enabled)
{
    if (QAction *b = m_buttonOf.value(int(command))) {
        // a button stands for a command; it stays off while that command is not built
        b->setProperty(SwitchedOff, !enabled);
        b->setEnabled(enabled && commandBuilt(menuOfKey(b->data().toString())));
    }
    const QString name = nd::commandName(command);
    if (QAction *a = name.isEmpty() ? nullptr : action(name)) {
        a->setProperty(SwitchedOff, !enabled);
        a->setEnabled(enabled && commandBuilt(name));
    }
}

void frmMain::MenuOnOff(nd::Scope scope, bool enabled)
{
    for (nd::Cmd c : nd::scopeCommands(scope))
        SetMenuState(c, enabled);
}

bool frmMain::IsConnectedIdle(bool warn)
{
    return session && session->IsConnectedIdle(warn);
}

void frmMain::OpenDocument(const QString &target)
{
    setBusy(true);
    bool ok = false;
    if (!target.isEmpty()) {
        QUrl url = QUrl::fromUserInput(target, QDir::currentPath(), QUrl::AssumeLocalFile);
        if (url.isLocalFile() && !QFileInfo::exists(url.toLocalFile()))
            ok = false;
        else
            ok = QDesktopServices::openUrl(url);
    }
    setBusy(false);
    if (!ok)
        prompter().message(QStringLiteral("Error Executing Application or File Not Found"), Prompter::NoIcon, Prompter::Ok);
}

void frmMain::StopOperation()
{
    m_shell->StopOperation();
}

void frmMain::setBusy(bool busy)
{
    if (busy)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        while (QApplication::overrideCursor())
            QApplication::restoreOverrideCursor();
}

void frmMain::onTick()
{
    S.SecondsTick = nd::nextSecondsTick(S.SecondsTick);
}

void frmMain::applyTrayOnStateChange()
{
    if (store().get(QStringLiteral("Tray"), QStringLiteral("0")) != QLatin1String("1"))
        return;
    if (isMinimized()) {
        TrayIcon1->setVisible(true);
        // only hide when the tray can bring the window back
        if (QSystemTrayIcon::isSystemTrayAvailable())
            QTimer::singleShot(0, this, [this] { if (isMinimized()) hide(); });
    } else {
        TrayIcon1->setVisible(false);
    }
}

void frmMain::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange)
        applyTrayOnStateChange();
}

// ------------------------------------------------------------------ start-up and shutdown

void frmMain::startUp()
{
    if (!m_options.skipStartupDialogs) {
        showSplash();
        if (store().get(QStringLiteral("QHShow")).isEmpty())
            showQuickHelp(true);
    }
    setWindowTitle(QStringLiteral("Newsdredge! v%1").arg(QLatin1String(nd::VersionText)));
    QRect desktop;
    for (QScreen *s : QGuiApplication::screens())
        desktop = desktop.united(s->availableGeometry());
    if (desktop.isEmpty())
        desktop = QRect(0, 0, 1024, 768);
    setGeometry(nd::restoreMainGeometry(store(), desktop));
    GetSettings();
}

void frmMain::GetSettings()
{
    TrayIcon1->setIcon(windowIcon());
    TrayIcon1->setToolTip(QStringLiteral("Newsdredge! %1").arg(QLatin1String(nd::VersionText)));
    nd::cleanAppTempFiles();
    QDir::setCurrent(nd::cacheDir());
    nd::readSettings(opt, store());
    nd::cleanDownloadTempFiles(opt.DestDir);   // what a run that ended abruptly left there
    S.FavoritesShortName = QFileInfo(opt.FavoritesFile).completeBaseName();
    UpdateCaption(nd::Caption::Title);
    if (opt.Preview == 0)
        if (QAction *p = action(QStringLiteral("menuPreview")))
            p->setChecked(false);
    if (QFileInfo::exists(opt.FavoritesFile))
        lstFavorites->load(opt.FavoritesFile);
    UpdateCaption(nd::Caption::Favorites);
    emit m_shell->settingsLoaded();
    if (opt.NNTPServer.isEmpty())
        firstRunDialogue();
}

void frmMain::firstRunDialogue()
{
    prompter().message(QStringLiteral("It appears you have no Usenet server defined.  To access Usenet you must have a server assigned."),
                        Prompter::Critical, Prompter::Ok);
    const auto a = prompter().message(QStringLiteral("Would you like information on obtaining a free Usenet server account?"),
                                       Prompter::Question, Prompter::YesNo, QString(), Prompter::AnswerNo);
    if (a == Prompter::AnswerYes)
        OpenDocument(QString::fromLatin1(nd::UrlAccountSetup));
}

void frmMain::SaveSettings()
{
    if (!opt.FavoritesFile.isEmpty() && !store().readOnly() && !S.ScanMode)
        lstFavorites->save(opt.FavoritesFile);
    nd::cleanAppTempFiles();
    nd::cleanDownloadTempFiles(opt.DestDir);
    nd::writeMainBlock(opt, store());
    store().sync();
}

void frmMain::closeEvent(QCloseEvent *event)
{
    S.StopRequested = true;
    if (nd::waitDepth() > 0) {
        // a loop is still waiting: let it end, then close for real
        m_closePending = true;
        if (m_shell->abortTransaction)
            m_shell->abortTransaction();
        event->ignore();
        return;
    }
    if (!m_shutdownDone)
        shutdown();
    event->accept();
}

void frmMain::shutdown()
{
    emit m_shell->shuttingDown();   // secondary windows close themselves
    if (isMinimized() || isMaximized())
        setWindowState(Qt::WindowNoState);
    nd::yieldOnce();
    nd::storeMainGeometry(store(), normalGeometry().isValid() ? normalGeometry() : geometry());
    store().save(QStringLiteral("ProxyHost"), opt.ProxyHost);
    store().save(QStringLiteral("ProxyPort"), QString::number(opt.ProxyPort));
    store().save(QStringLiteral("DestDir"), opt.DestDir);
    SaveSettings();
    TrayIcon1->hide();
    m_shutdownDone = true;
}

void frmMain::showAbout()
{
    nd::showAboutBox(this);
}

void frmMain::showQuickHelp(bool startup)
{
    nd::showQuickHelp(this, store(), startup);
}

void frmMain::showSplash()
{
    nd::showSplash(this);
}
