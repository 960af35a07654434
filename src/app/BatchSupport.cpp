#include "app/BatchSupport.h"

#include "news/transport/SafeText.h"

#include <QFile>
#include <csignal>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nd::batch {

namespace {

void writeLine(FILE *f, const QString &line, SafeTextTabs tabs)
{
    const QByteArray bytes = safeText(line, tabs).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), f);
    std::fputc('\n', f);
    std::fflush(f);
}

volatile std::sig_atomic_t g_signal = 0;
struct sigaction g_previous[2];

void recordSignal(int sig)
{
    g_signal = sig;
    const struct sigaction &prev = g_previous[sig == SIGINT ? 1 : 0];
    if (prev.sa_flags & SA_SIGINFO)
        return;   // not installed by this program
    if (prev.sa_handler != SIG_DFL && prev.sa_handler != SIG_IGN && prev.sa_handler != nullptr)
        prev.sa_handler(sig);
}

} // namespace

void writeOut(const QString &line) { writeLine(stdout, line, SafeTextTabs::Keep); }
void writeErr(const QString &line) { writeLine(stderr, line, SafeTextTabs::Escape); }

bool resolvePassword(const QString &fromCommandLine, bool givenOnCommandLine, QString *password,
                     QString *error)
{
    if (!givenOnCommandLine) {
        *password = qEnvironmentVariable("NEWSDREDGE_PASSWORD");
        return true;
    }
    if (fromCommandLine == QLatin1String("-")) {
        QFile in;
        if (!in.open(stdin, QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read the password from standard input");
            return false;
        }
        QByteArray line = in.readLine();
        while (line.endsWith('\n') || line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty()) {
            *error = QStringLiteral("no password on standard input");
            return false;
        }
        *password = QString::fromUtf8(line);
        return true;
    }
    writeErr(QStringLiteral("newsdredge: warning: a password given on the command line can be read by other "
                            "users of this computer; use --password - (standard input) "
                            "or NEWSDREDGE_PASSWORD instead"));
    *password = fromCommandLine;
    hidePasswordArgument();
    return true;
}

void hidePasswordArgument()
{
    // The command line as the system shows it is the memory the arguments were handed over in,
    // starting at argv[0]; its strings follow one another. Each is checked against
    // /proc/self/cmdline before anything is written.
    QFile f(QStringLiteral("/proc/self/cmdline"));
    if (!f.open(QIODevice::ReadOnly))
        return;
    const QList<QByteArray> args = f.readAll().split('\0');
    char *p = program_invocation_name;
    if (!p || args.isEmpty() || std::strcmp(p, args.first().constData()) != 0)
        return;
    bool value = false;
    for (qsizetype i = 0; i + 1 < args.size(); ++i) {   // the last piece is the empty one after the last NUL
        const size_t len = std::strlen(p);
        if (len != size_t(args[i].size()) || std::memcmp(p, args[i].constData(), len) != 0)
            return;
        if (value && std::strcmp(p, "-") != 0)
            std::memset(p, '*', len);
        value = std::strcmp(p, "--password") == 0;
        p += len + 1;
    }
}

void recordTerminationSignals()
{
    struct sigaction sa {};
    sa.sa_handler = recordSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, &g_previous[0]);
    sigaction(SIGINT, &sa, &g_previous[1]);
}

int terminationSignal() { return int(g_signal); }

int exitStatus(int status)
{
    const int sig = terminationSignal();
    if (sig == 0)
        return status;
    writeErr(QStringLiteral("newsdredge: ended by signal %1 (%2)")
                 .arg(sig).arg(sig == SIGINT ? QStringLiteral("interrupt") : QStringLiteral("termination request")));
    return 128 + sig;
}

} // namespace nd::batch
