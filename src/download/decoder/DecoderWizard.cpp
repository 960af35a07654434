#include "download/decoder/DecoderWizard.h"

#include <QtConcurrent/QtConcurrentRun>

#include <exception>

DecoderWizard::DecoderWizard(QObject *parent) : QObject(parent)
{
    connect(&m_watcher, &QFutureWatcher<decoder::FileDecodeResult>::finished, this,
            &DecoderWizard::finished);
}

DecoderWizard::~DecoderWizard()
{
    // the worker writes into files only; let it finish before the object goes
    m_watcher.waitForFinished();
}

void DecoderWizard::DecodeToFile(const QString &inputPath, const QString &outputPath, int format,
                                 bool overwrite)
{
    if (m_busy) {
        m_error = decoder::ErrorBusy;
        m_errorText = tr("The decoder is still busy with the previous file");
        return;
    }
    m_busy = true;
    m_error = 0;
    m_errorText.clear();
    m_outputPath.clear();
    m_watcher.setFuture(QtConcurrent::run([inputPath, outputPath, format, overwrite] {
        try {
            return decoder::decodeFile(inputPath, outputPath, format, overwrite);
        } catch (const std::exception &e) { // out of memory, mostly: report it, do not take the window down
            decoder::FileDecodeResult r;
            r.error = decoder::ErrorWrite;
            r.errorText = QStringLiteral("decoding %1 failed: %2").arg(inputPath, QString::fromLocal8Bit(e.what()));
            return r;
        }
    }));
}

void DecoderWizard::finished()
{
    const decoder::FileDecodeResult r = m_watcher.result();
    m_error = r.error;
    m_errorText = r.errorText;
    m_outputPath = r.outputPath;
    m_busy = false;
    emit Completed();
}
