// Server passwords and the desktop's secret service. Without one the server list file keeps
// them (owner-only, as always); with one (a private gnome-keyring on a private session bus, when
// the machine has both) the file keeps the user names only and the passwords come back at load.
#include "gui/app/frmMain.h"
#include "servers/SecretStore.h"
#include "servers/ServerList.h"
#include "settings/SettingsStore.h"
#include "support/TextFile.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QtTest>

namespace {

// Saves two servers with passwords, reads them back in a fresh window; returns the file's text.
QByteArray roundTrip()
{
    QFile::remove(ServerList::listFile());
    {
        ScriptedPrompter p;
        frmMain w(&p, frmMain::Options{true});
        ServerList &s = *w.servers;
        s.lstServs->clear();
        s.lstServs->add(QStringLiteral("????? ???    news.a.example"), QStringLiteral("anna|||s3cret one"));
        s.lstServs->add(QStringLiteral("????? ???    nntps://news.b.example:563"), QStringLiteral("bob|||p|||w"));
        s.lstServs->add(QStringLiteral("????? ???    news.c.example"), QString());
        if (!s.save())
            return QByteArray("<not saved>");
        // what the window holds is unchanged by saving
        if (s.credentialsFor(QStringLiteral("news.a.example")).second != QLatin1String("s3cret one"))
            return QByteArray("<changed in memory>");
    }
    ScriptedPrompter p;
    frmMain w(&p, frmMain::Options{true});
    ServerList &s = *w.servers;
    s.load();
    if (s.credentialsFor(QStringLiteral("news.a.example")) != QPair<QString, QString>{"anna", "s3cret one"} ||
        s.credentialsFor(QStringLiteral("nntps://news.b.example:563")) != QPair<QString, QString>{"bob", "p|||w"})
        return QByteArray("<not read back>");
    return testfile::readFile(ServerList::listFile());
}

} // namespace

class TstSecretStore : public QObject {
    Q_OBJECT
private slots:
    void withoutSecretService()
    {
        if (qEnvironmentVariableIsSet("ND_WITH_KEYRING"))
            QSKIP("run on its own");
        QVERIFY(!nd::secrets::available());
        const QByteArray text = roundTrip();
        QVERIFY2(text.contains("anna|||s3cret one") && text.contains("bob|||p|||w"), text.constData());
        QCOMPARE(QFile::permissions(ServerList::listFile()) & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());
    }

    void withSecretService()
    {
        if (!qEnvironmentVariableIsSet("ND_WITH_KEYRING")) {
            // again, inside a session bus with a keyring of its own
            const QString dbus = QStandardPaths::findExecutable(QStringLiteral("dbus-run-session"));
            const QString keyring = QStandardPaths::findExecutable(QStringLiteral("gnome-keyring-daemon"));
            if (dbus.isEmpty() || keyring.isEmpty())
                QSKIP("dbus-run-session or gnome-keyring-daemon missing");
            QTemporaryDir home;
            QProcess child;
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.insert(QStringLiteral("ND_WITH_KEYRING"), QStringLiteral("1"));
            env.insert(QStringLiteral("HOME"), home.path());
            env.insert(QStringLiteral("XDG_DATA_HOME"), home.path() + QStringLiteral("/data"));
            env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
            env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
            env.remove(QStringLiteral("NEWSDREDGE_NO_KEYCHAIN"));
            child.setProcessEnvironment(env);
            child.setProcessChannelMode(QProcess::MergedChannels);
            child.start(dbus, {QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"),
                               QStringLiteral("printf 'newsdredge-test' | \"$1\" --unlock --components=secrets >/dev/null 2>&1; "
                                              "exec \"$2\" withSecretService"),
                               QStringLiteral("sh"), keyring, QCoreApplication::applicationFilePath()});
            QVERIFY(child.waitForFinished(60000));
            const QByteArray out = child.readAll();
            if (out.contains("SKIP   : TstSecretStore::withSecretService()"))
                QSKIP("the private keyring did not start");
            QVERIFY2(child.exitCode() == 0, out.constData());
            return;
        }
        if (!nd::secrets::available())
            QSKIP("no secret service came up");
        bool found = false;
        QVERIFY(nd::secrets::storePassword(QStringLiteral("x.example"), QStringLiteral("u"), QStringLiteral("pw")));
        QCOMPARE(nd::secrets::readPassword(QStringLiteral("x.example"), QStringLiteral("u"), &found), QStringLiteral("pw"));
        QVERIFY(found);
        nd::secrets::readPassword(QStringLiteral("x.example"), QStringLiteral("other"), &found);
        QVERIFY(!found);

        const QByteArray text = roundTrip();
        QVERIFY2(text.contains("anna|||") && text.contains("bob|||"), text.constData());
        QVERIFY2(!text.contains("s3cret") && !text.contains("p|||w"), text.constData());
    }
};

QTEST_MAIN(TstSecretStore)
#include "tst_secretstore.moc"
