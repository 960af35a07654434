#include "download/Par2.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <limits>
#include <vector>

namespace par2 {

namespace {

const QRegularExpression &volumePattern()
{
    static const QRegularExpression re(QStringLiteral("\\.vol(\\d{1,9})\\+(\\d{1,9})\\.par2$"),
                                       QRegularExpression::CaseInsensitiveOption);
    return re;
}

int numberAfter(const QByteArray &text, const QByteArray &prefix)
{
    const qsizetype at = text.lastIndexOf(prefix);
    if (at < 0)
        return -1;
    qsizetype i = at + prefix.size();
    qint64 n = 0;
    bool any = false;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9' && n < std::numeric_limits<int>::max() / 10) {
        n = n * 10 + (text[i] - '0');
        ++i;
        any = true;
    }
    return any ? int(n) : -1;
}

} // namespace

Volume parseVolumeName(const QString &fileName)
{
    Volume v;
    v.fileName = fileName;
    const auto m = volumePattern().match(fileName);
    if (m.hasMatch()) {
        v.firstBlock = m.captured(1).toInt();
        v.blocks = m.captured(2).toInt();
    }
    return v;
}

bool isPar2Name(const QString &fileName)
{
    return fileName.endsWith(QLatin1String(".par2"), Qt::CaseInsensitive);
}

QString setName(const QString &fileName)
{
    if (!isPar2Name(fileName))
        return QString();
    const auto m = volumePattern().match(fileName);
    if (m.hasMatch())
        return fileName.left(m.capturedStart());
    return fileName.chopped(5);
}

QList<Volume> chooseVolumes(const QList<Volume> &available, int blocksNeeded)
{
    if (blocksNeeded <= 0)
        return {};
    QList<Volume> vols;
    qint64 total = 0;
    int largest = 0;
    for (const Volume &v : available)
        if (v.blocks > 0) {
            vols << v;
            total += v.blocks;
            largest = std::max(largest, v.blocks);
        }
    if (total < blocksNeeded)
        return {};
    std::sort(vols.begin(), vols.end(), [](const Volume &a, const Volume &b) { return a.blocks < b.blocks; });
    const int limit = blocksNeeded + largest;   // no smallest cover goes beyond this
    if (qint64(vols.size()) * (limit + 1) > 32 * 1024 * 1024) {
        // too many to weigh every choice: smallest first until covered
        QList<Volume> chosen;
        qint64 sum = 0;
        for (const Volume &v : vols) {
            if (sum >= blocksNeeded)
                break;
            chosen << v;
            sum += v.blocks;
        }
        return chosen;
    }
    // fewest[i][s]: the fewest of the first i volumes whose blocks add up to s exactly
    constexpr quint16 None = 0xFFFF;
    const size_t width = size_t(limit) + 1;
    std::vector<quint16> fewest((size_t(vols.size()) + 1) * width, None);
    auto at = [&](qsizetype i, int s) -> quint16 & { return fewest[size_t(i) * width + size_t(s)]; };
    at(0, 0) = 0;
    for (qsizetype i = 0; i < vols.size(); ++i) {
        const int b = vols[i].blocks;
        for (int s = 0; s <= limit; ++s) {
            quint16 best = at(i, s);
            if (s >= b && at(i, s - b) != None)
                best = std::min<quint16>(best, quint16(at(i, s - b) + 1));
            at(i + 1, s) = best;
        }
    }
    int sum = -1;
    for (int s = blocksNeeded; s <= limit && sum < 0; ++s)
        if (at(vols.size(), s) != None)
            sum = s;
    QList<Volume> chosen;
    for (qsizetype i = vols.size(); i > 0 && sum > 0; --i) {
        if (at(i, sum) == at(i - 1, sum))
            continue;   // this volume is not needed for the sum
        chosen.prepend(vols[i - 1]);
        sum -= vols[i - 1].blocks;
    }
    return chosen;
}

Report parseOutput(const QByteArray &output, int exitCode)
{
    Report r;
    QByteArray text = output;
    text.replace('\r', '\n');
    const QList<QByteArray> lines = text.split('\n');
    r.recoveryBlocksAvailable = std::max(0, numberAfter(text, "You have "));
    if (text.contains("recovery blocks available")) {
        // "You have N recovery blocks available." is the last "You have" line
        const qsizetype at = text.lastIndexOf("recovery blocks available");
        const qsizetype start = text.lastIndexOf("You have ", at);
        r.recoveryBlocksAvailable = std::max(0, numberAfter(text.mid(start, at - start), "You have "));
    }
    auto lastLineWith = [&lines](const char *needle) {
        for (qsizetype i = lines.size() - 1; i >= 0; --i)
            if (lines[i].contains(needle))
                return QString::fromUtf8(lines[i].trimmed());
        return QString();
    };
    if (text.contains("Repair complete.")) {
        r.state = Report::State::Repaired;
        r.message = QStringLiteral("Repair complete.");
    } else if (text.contains("All files are correct, repair is not required.")) {
        r.state = Report::State::AllCorrect;
        r.message = QStringLiteral("All files are correct, repair is not required.");
    } else if (text.contains("more recovery blocks to be able to repair")) {
        r.state = Report::State::NeedsBlocks;
        r.blocksNeeded = std::max(0, numberAfter(text, "You need "));
        r.message = lastLineWith("more recovery blocks");
    } else if (text.contains("Repair is possible.")) {
        r.state = Report::State::RepairPossible;
        r.message = QStringLiteral("Repair is possible.");
    } else if (exitCode != 0) {
        r.state = Report::State::Failed;
        for (qsizetype i = lines.size() - 1; i >= 0 && r.message.isEmpty(); --i)
            if (!lines[i].trimmed().isEmpty() && !lines[i].contains('%'))
                r.message = QString::fromUtf8(lines[i].trimmed());
    }
    if (r.state == Report::State::Repaired && exitCode != 0)
        r.state = Report::State::Failed;
    return r;
}

int lastPercent(const QByteArray &chunk)
{
    const qsizetype pct = chunk.lastIndexOf('%');
    if (pct < 1)
        return -1;
    qsizetype i = pct - 1;
    while (i >= 0 && ((chunk[i] >= '0' && chunk[i] <= '9') || chunk[i] == '.'))
        --i;
    bool ok = false;
    const double v = chunk.mid(i + 1, pct - i - 1).toDouble(&ok);
    return ok ? std::clamp(int(v), 0, 100) : -1;
}

Runner::Runner(QObject *parent) : QObject(parent) {}

Runner::~Runner()
{
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(2000);
    }
}

QString Runner::program()
{
    const QString over = qEnvironmentVariable("NEWSDREDGE_PAR2");
    return over.isEmpty() ? QStringLiteral("par2") : over;
}

bool Runner::available()
{
    const QString p = program();
    return QFileInfo(p).isAbsolute() ? QFileInfo(p).isExecutable() : !QStandardPaths::findExecutable(p).isEmpty();
}

bool Runner::running() const
{
    return m_process && m_process->state() != QProcess::NotRunning;
}

void Runner::start(Mode mode, const QString &indexPath, const QStringList &extraFiles)
{
    stop();
    m_output.clear();
    m_report = Report();
    m_stopped = false;
    m_mode = mode;
    m_dir = QFileInfo(indexPath).absolutePath();
    m_filesBefore = QDir(m_dir).entryList(QDir::Files | QDir::Hidden);
    auto *p = new QProcess(this);
    m_process = p;
    p->setProcessChannelMode(QProcess::MergedChannels);
    p->setWorkingDirectory(QFileInfo(indexPath).absolutePath());
    QStringList args{mode == Mode::Verify ? QStringLiteral("verify") : QStringLiteral("repair"), QStringLiteral("--"),
                     QFileInfo(indexPath).absoluteFilePath()};
    for (const QString &f : extraFiles)
        args << QFileInfo(f).absoluteFilePath();
    connect(p, &QProcess::readyRead, this, &Runner::onOutput);
    connect(p, &QProcess::finished, this, [this](int code, QProcess::ExitStatus) { onFinished(code); });
    connect(p, &QProcess::errorOccurred, this, [this, p](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart) {
            m_report.state = Report::State::Failed;
            m_report.message = QStringLiteral("par2 could not be started: %1").arg(p->errorString());
            p->deleteLater();
            emit finished(m_report);
        }
    });
    p->start(program(), args);
}

void Runner::stop()
{
    if (!running())
        return;
    m_stopped = true;
    m_process->kill();
}

void Runner::onOutput()
{
    const QByteArray chunk = m_process->readAll();
    // keep what tells the outcome, not megabytes of progress figures
    m_output += chunk;
    if (m_output.size() > (1 << 20))
        m_output = m_output.right(1 << 19);
    const int pct = lastPercent(chunk);
    if (pct >= 0) {
        const qsizetype colon = chunk.lastIndexOf(':');
        qsizetype start = colon;
        while (start > 0 && chunk[start - 1] != '\r' && chunk[start - 1] != '\n' && chunk[start - 1] != '%')
            --start;
        emit progress(pct, colon > 0 ? QString::fromUtf8(chunk.mid(start, colon - start).trimmed()) : QString());
    }
}

void Runner::onFinished(int exitCode)
{
    if (m_process)
        m_output += m_process->readAll();
    m_report = parseOutput(m_output, exitCode);
    if (m_stopped) {
        m_report.state = Report::State::Failed;
        m_report.message = QStringLiteral("Stopped");
        if (m_mode == Mode::Repair)
            undoStoppedRepair();
    }
    if (m_process)
        m_process->deleteLater();
    emit finished(m_report);
}

void Runner::undoStoppedRepair()
{
    QDir dir(m_dir);
    static const QRegularExpression renamed(QStringLiteral("^(.+)\\.(\\d{1,4})$"));
    const QStringList now = dir.entryList(QDir::Files | QDir::Hidden);
    // originals first, so a half-written file under the original's name is replaced
    for (const QString &f : now) {
        if (m_filesBefore.contains(f))
            continue;
        const auto m = renamed.match(f);
        if (m.hasMatch() && m_filesBefore.contains(m.captured(1))) {
            dir.remove(m.captured(1));
            dir.rename(f, m.captured(1));
        }
    }
    for (const QString &f : dir.entryList(QDir::Files | QDir::Hidden))
        if (!m_filesBefore.contains(f))
            dir.remove(f);
}

} // namespace par2
