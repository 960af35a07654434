#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QString>

#include "download/decoder/Decoders.h"

// Decodes a downloaded set's temporary file into the attachment file on a
// worker thread, so that the window stays responsive; Completed() tells the
// caller (on the object's own thread) once the output file is closed.
class DecoderWizard : public QObject
{
    Q_OBJECT
public:
    explicit DecoderWizard(QObject *parent = nullptr);
    ~DecoderWizard() override;

    // format: 0 MIME attachment text, 2 uuencode, 3 yEnc. Returns at once.
    // While a decode runs a second call is refused (DecodeError() is then
    // ErrorBusy) and only the running one signals completion.
    void DecodeToFile(const QString &inputPath, const QString &outputPath, int format, bool overwrite);
    int DecodeError() const { return m_error; }
    QString DecodeErrorText() const { return m_errorText; }
    QString OutputPath() const { return m_outputPath; }
    bool Busy() const { return m_busy; }

signals:
    void Completed();

private:
    void finished();

    QFutureWatcher<decoder::FileDecodeResult> m_watcher;
    int m_error = 0;
    QString m_errorText;
    QString m_outputPath;
    bool m_busy = false;
};
