#pragma once
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class QProcess;

// PAR2 sets: the index file "name.par2" and recovery volumes "name.volNNN+MMM.par2", checked and
// repaired with par2cmdline run as a child process.
namespace par2 {

struct Volume {
    QString fileName;
    int firstBlock = 0;
    int blocks = 0;   // recovery blocks the volume holds
};

// The volume a file name stands for; blocks == 0 when the name is no recovery volume.
Volume parseVolumeName(const QString &fileName);
// True for an index file or a recovery volume.
bool isPar2Name(const QString &fileName);
// The set a PAR2 file belongs to: its name without ".par2" and without ".volNNN+MMM".
QString setName(const QString &fileName);

// The volumes to fetch for blocksNeeded missing blocks: the fewest recovery blocks in all that
// cover the need (fewer volumes where that ties). Empty when the volumes cannot cover it.
QList<Volume> chooseVolumes(const QList<Volume> &available, int blocksNeeded);

// What a verify or repair run reported.
struct Report {
    enum class State {
        Unknown,          // the output said nothing we understand
        AllCorrect,       // every file is as the index describes
        RepairPossible,   // damaged, and the blocks at hand repair it
        NeedsBlocks,      // damaged, blocksNeeded more recovery blocks are wanted
        Repaired,
        Failed,           // par2 failed (no index, unreadable files...)
    };
    State state = State::Unknown;
    int blocksNeeded = 0;
    int recoveryBlocksAvailable = 0;
    QString message;   // the last line that tells the outcome
};
Report parseOutput(const QByteArray &output, int exitCode);

// A progress figure in a chunk of par2's output ("Verifying: 45.3%"); -1 when none.
int lastPercent(const QByteArray &chunk);

// Runs one "par2 verify" or "par2 repair" over an index file, in the index's directory, with
// extra files to scan (decoded files under other names, such as ".damaged" ones). Progress is
// reported as it comes; stop() ends the child at once and the run finishes as stopped.
class Runner : public QObject {
    Q_OBJECT
public:
    enum class Mode { Verify, Repair };
    explicit Runner(QObject *parent = nullptr);
    ~Runner() override;

    // The par2 program (default: "par2" on PATH; NEWSDREDGE_PAR2 overrides).
    static QString program();
    static bool available();

    void start(Mode mode, const QString &indexPath, const QStringList &extraFiles = {});
    void stop();
    bool running() const;
    bool stopped() const { return m_stopped; }
    Report report() const { return m_report; }

signals:
    void progress(int percent, const QString &phase);
    void finished(const par2::Report &report);

private:
    void onOutput();
    void onFinished(int exitCode);
    // After a stopped repair: the originals par2 had renamed to "name.N" take their names
    // back, and files the run had begun to write go.
    void undoStoppedRepair();

    QPointer<QProcess> m_process;
    QByteArray m_output;
    Report m_report;
    bool m_stopped = false;
    Mode m_mode = Mode::Verify;
    QString m_dir;
    QStringList m_filesBefore;
};

} // namespace par2
