#include "gui/app/StartupDialogs.h"

#include "app/Constants.h"
#include "settings/SettingsStore.h"

#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QTextBrowser>
#include <QTimer>
#include <QVBoxLayout>

namespace nd {

void showSplash(QWidget *parent)
{
    QDialog splash(parent, Qt::SplashScreen | Qt::FramelessWindowHint);
    splash.setObjectName(QStringLiteral("frmSplash"));
    auto *l = new QVBoxLayout(&splash);
    auto *title = new QLabel(QStringLiteral("<h1>Newsdredge!</h1><p>Version %1</p><p>Harvesting the files posted to Usenet</p>")
                                 .arg(QLatin1String(VersionText)), &splash);
    title->setAlignment(Qt::AlignCenter);
    l->addWidget(title);
    splash.resize(380, 200);
    QTimer::singleShot(1200, &splash, &QDialog::accept);
    splash.exec();
}

static const char *QuickHelpHtml =
    "<h2>Quick Help</h2>"
    "<ol>"
    "<li><b>Setup</b>: add your news server (and its user ID and password) in the setup dialog, "
    "and choose the download directory.</li>"
    "<li><b>Connect</b>: the groups of the server appear on the left. Tick <i>binaries only</i> in "
    "the setup to keep only binaries groups.</li>"
    "<li><b>Double-click a group</b>: its newest messages are listed, newest first. Click a heading to sort; "
    "F3 or Edit &gt; Find searches.</li>"
    "<li><b>Select messages and right-click</b> (or press F2 for all): every part of each post is fetched and "
    "decoded into the download directory. Saved files are listed at the bottom; pictures are previewed.</li>"
    "<li><b>Favourites</b>: drag groups into the favourites list to keep them across servers.</li>"
    "</ol>";

void showQuickHelp(QWidget *parent, SettingsStore &store, bool startup)
{
    QDialog dlg(parent);
    dlg.setObjectName(QStringLiteral("frmQuickHelp"));
    dlg.setWindowTitle(QStringLiteral("Quick Help"));
    auto *l = new QVBoxLayout(&dlg);
    auto *text = new QTextBrowser(&dlg);
    text->setHtml(QString::fromLatin1(QuickHelpHtml));
    l->addWidget(text);
    auto *again = new QCheckBox(QStringLiteral("Show Quick Help at start-up"), &dlg);
    again->setChecked(store.get(QStringLiteral("QHShow")).isEmpty());
    l->addWidget(again);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, &dlg);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dlg, &QDialog::reject);
    l->addWidget(buttons);
    dlg.resize(520, 380);
    if (startup)
        QTimer::singleShot(0, &dlg, [&dlg] { dlg.raise(); });
    dlg.exec();
    store.save(QStringLiteral("QHShow"), again->isChecked() ? QString() : QStringLiteral("1"));
}

void showAboutBox(QWidget *parent)
{
    QDialog dlg(parent);
    dlg.setObjectName(QStringLiteral("frmAbout"));
    dlg.setWindowTitle(QStringLiteral("About Newsdredge!"));
    auto *l = new QVBoxLayout(&dlg);
    auto *t = new QLabel(QStringLiteral("<h2>Newsdredge! v%1</h2><p>Harvests the files posted to Usenet.</p>"
                                        "<p>Support: %2</p>")
                             .arg(QLatin1String(VersionText), QLatin1String(SupportAddress)), &dlg);
    t->setTextInteractionFlags(Qt::TextSelectableByMouse);
    l->addWidget(t);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok, &dlg);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dlg, &QDialog::accept);
    l->addWidget(buttons);
    dlg.exec();
}

} // namespace nd
