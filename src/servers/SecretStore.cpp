#include "servers/SecretStore.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QTimer>

#ifdef ND_HAVE_KEYCHAIN
#include <qt6keychain/keychain.h>
#endif

namespace nd::secrets {

namespace {

const QString Service = QStringLiteral("Newsdredge");

QString keyOf(const QString &server, const QString &user) { return user + QLatin1Char('@') + server; }

#ifdef ND_HAVE_KEYCHAIN
// Runs a job to its end (a few milliseconds on a working service; never longer than 5 s).
bool run(QKeychain::Job &job)
{
    job.setAutoDelete(false);
    job.setInsecureFallback(false);   // no plain-text file of Qt Keychain's own
    QEventLoop loop;
    bool finished = false;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, [&] {
        finished = true;
        loop.quit();
    });
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    job.start();
    if (!finished)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    return finished;
}
#endif

} // namespace

bool available()
{
#ifdef ND_HAVE_KEYCHAIN
    static const bool yes = [] {
        if (qEnvironmentVariableIsSet("NEWSDREDGE_NO_KEYCHAIN"))
            return false;
        // no session bus, no secret service: do not even try
        const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") &&
            (runtime.isEmpty() || !QFileInfo::exists(runtime + QStringLiteral("/bus"))))
            return false;
        QKeychain::ReadPasswordJob probe(Service);
        probe.setKey(QStringLiteral("newsdredge-probe"));
        if (!run(probe))
            return false;
        return probe.error() == QKeychain::NoError || probe.error() == QKeychain::EntryNotFound;
    }();
    return yes;
#else
    return false;
#endif
}

bool storePassword(const QString &server, const QString &user, const QString &password)
{
#ifdef ND_HAVE_KEYCHAIN
    if (!available())
        return false;
    QKeychain::WritePasswordJob job(Service);
    job.setKey(keyOf(server, user));
    job.setTextData(password);
    return run(job) && job.error() == QKeychain::NoError;
#else
    Q_UNUSED(server) Q_UNUSED(user) Q_UNUSED(password)
    return false;
#endif
}

QString readPassword(const QString &server, const QString &user, bool *found)
{
    *found = false;
#ifdef ND_HAVE_KEYCHAIN
    if (!available())
        return QString();
    QKeychain::ReadPasswordJob job(Service);
    job.setKey(keyOf(server, user));
    if (!run(job) || job.error() != QKeychain::NoError)
        return QString();
    *found = true;
    return job.textData();
#else
    Q_UNUSED(server) Q_UNUSED(user)
    return QString();
#endif
}

} // namespace nd::secrets
