#include "app/Wait.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

namespace nd {

namespace {
int g_depth = 0;
std::function<void()> g_endedHook;
}

void waitUntil(const std::function<bool()> &pred)
{
    if (pred())
        return;
    ++g_depth;
    QTimer heartbeat;
    heartbeat.setInterval(200);
    heartbeat.start();
    while (!pred())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    --g_depth;
    if (g_depth == 0 && g_endedHook)
        QTimer::singleShot(0, [] { if (g_depth == 0 && g_endedHook) g_endedHook(); });
}

void yieldOnce()
{
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}

int waitDepth()
{
    return g_depth;
}

void setWaitEndedHook(std::function<void()> hook)
{
    g_endedHook = std::move(hook);
}

} // namespace nd
