#include "app/Signals.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace nd {

namespace {
int g_signalFd[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalFd[0], &c, 1);
}
} // namespace

void onTerminationSignal(QObject *context, std::function<void()> handler)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalFd) != 0)
        return;
    auto *n = new QSocketNotifier(g_signalFd[1], QSocketNotifier::Read, context);
    QObject::connect(n, &QSocketNotifier::activated, context, [handler = std::move(handler)] {
        char c;
        [[maybe_unused]] const ssize_t r = ::read(g_signalFd[1], &c, 1);
        handler();
    });
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
}

} // namespace nd
