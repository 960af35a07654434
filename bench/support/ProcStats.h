#pragma once
// What the benchmarks read about their own process: CPU time and /proc/self/status figures.
#include <QByteArray>
#include <QFile>
#include <ctime>

namespace bench {

inline double cpuSeconds(clockid_t clock)
{
    timespec ts{};
    clock_gettime(clock, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}
inline double processCpu() { return cpuSeconds(CLOCK_PROCESS_CPUTIME_ID); }
inline double threadCpu() { return cpuSeconds(CLOCK_THREAD_CPUTIME_ID); }

// A "kB" figure of /proc/self/status (key with its colon, e.g. "VmRSS:"); 0 when missing.
inline qint64 procStatusKb(const char *key)
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &l : f.readAll().split('\n'))
        if (l.startsWith(key))
            return l.mid(qstrlen(key)).trimmed().split(' ').value(0).toLongLong();
    return 0;
}

// Resets VmHWM to the current RSS (Linux 4.0 and later); false when the kernel refuses.
inline bool resetPeak()
{
    QFile f(QStringLiteral("/proc/self/clear_refs"));
    return f.open(QIODevice::WriteOnly) && f.write("5") == 1;
}

} // namespace bench
