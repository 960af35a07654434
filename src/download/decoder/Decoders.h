#pragma once
// Synchronous decoders over byte buffers and files: yEnc, uuencode and the
// MIME attachment text of a downloaded set. DecoderWizard, the
// newsdredge-decode tool, the tests, fuzzers and benchmarks all go through here.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <mutex>
#include <vector>

namespace decoder {

// Format codes of DecodeToFile.
enum Format { FormatMime = 0, FormatUuencode = 2, FormatYenc = 3 };

// Values of DecodeError.
enum Error {
    NoError = 0,
    ErrorNoData = 1,   // no encoded data of the asked format in the input
    ErrorRead = 2,     // the input could not be read
    ErrorWrite = 3,    // the output could not be written
    ErrorDamaged = 4,  // CRC mismatch, missing or truncated part: written as ".damaged"
    ErrorExists = 5,   // the output exists and overwriting was not allowed
    ErrorFormat = 6,   // unknown format code
    ErrorBusy = 7      // the wizard is still decoding the previous file
};

// Where decoded bytes go. yEnc parts are written at their own offsets; the
// other formats write sequentially.
class OutputSink
{
public:
    virtual ~OutputSink() = default;
    virtual bool writeAt(qint64 offset, const char *data, qint64 len) = 0;
    virtual QString errorString() const = 0;
    // Decoding straight into the sink's memory: acquire() lends a buffer of at
    // least size bytes, submit() hands back its first len bytes (len may be 0)
    // for offset. Only one buffer is lent at a time to each thread.
    virtual char *acquire(qint64 size);
    virtual bool submit(qint64 offset, char *buffer, qint64 len);
    // The same, also continuing the CRC in *crc over the bytes (possibly later,
    // in submission order: read *crc only after drain()).
    virtual bool submit(qint64 offset, char *buffer, qint64 len, uint32_t *crc);
    // Waits until everything submitted is written; false after any failure.
    virtual bool drain() { return true; }
    // drain(), and no more writes after it.
    virtual bool finish() { return drain(); }
    // True when every call but finish() and restart() may come from several
    // threads at once.
    virtual bool concurrent() const { return false; }
    // Forgets everything written so far: the output is empty again.
    virtual bool restart() { return false; }
};

// Collects the output in memory, refusing to grow beyond limit bytes.
class MemorySink : public OutputSink
{
public:
    explicit MemorySink(qint64 limit = qint64(1) << 30) : m_limit(limit) {}
    bool writeAt(qint64 offset, const char *data, qint64 len) override;
    QString errorString() const override;
    bool concurrent() const override { return true; }
    bool restart() override;
    QByteArray data;

private:
    qint64 m_limit;
    QString m_error;
    mutable std::mutex m_mutex;
};

// For inputs that live in a file: copies the input's bytes [offset, offset + len)
// into buf. Reading big windows this way is faster than touching the mapped
// pages; the memory view passed beside it stays the reference.
class InputReader
{
public:
    virtual ~InputReader() = default;
    virtual bool readAt(qint64 offset, char *buf, qint64 len) = 0;
};

struct DecodeResult
{
    int error = NoError;
    QStringList problems;      // what is wrong, in the order found ("CRC error in part 7")
    QString fileName;          // the name the data carries (yEnc name=, uuencode begin line)
    qint64 bytesWritten = 0;   // decoded bytes handed to the sink
    QString reason() const;    // problems as one human-readable line
};

// With workers > 1 and a concurrent sink, ranges of about rangeBytes (each
// starting at a header) are decoded on that many threads; the result is the
// same as that of one pass.
DecodeResult decodeYenc(const char *data, qint64 len, OutputSink &out, InputReader *reader = nullptr,
                        int workers = 1, qint64 rangeBytes = 0);
DecodeResult decodeUuencode(const char *data, qint64 len, OutputSink &out);
// Base64 up to the first line that is not base64; other text as it stands.
DecodeResult decodeMime(const char *data, qint64 len, OutputSink &out);
DecodeResult decodeBuffer(int format, const char *data, qint64 len, OutputSink &out,
                          InputReader *reader = nullptr);

// yEnc when an "=ybegin" line is present, else uuencode when a "begin NNN name"
// line is, else MIME.
int detectFormat(const char *data, qint64 len);
// The file name the encoded data announces (yEnc name=, uuencode begin line,
// MIME filename=), not yet made safe; empty when there is none.
QString announcedFileName(int format, const char *data, qint64 len);
// A plain file name: no directory parts, no control characters, never "." or
// ".."; empty when nothing usable is left.
QString safeFileName(const QString &raw);

struct FileDecodeResult
{
    int error = NoError;
    QString errorText;   // empty when fine
    QString outputPath;  // the file written: outputPath, or outputPath + ".damaged"; empty if none
    QString fileName;    // the name the data carries
};

// A fresh name for decoding into before the result takes its place: outputPath + "." + a
// random word + ".decoding.tmp". decodeFile creates it exclusively, so a file of that name that
// is already there is never touched.
QString workingName(const QString &outputPath);

// Decodes inputPath into outputPath through a working file next to it (workingName); a damaged
// result goes to outputPath + ".damaged" and outputPath stays as it was. Without overwrite
// neither outputPath nor outputPath + ".damaged" is ever replaced: when one exists (or turns up
// meanwhile) the result is ErrorExists and nothing is written.
FileDecodeResult decodeFile(const QString &inputPath, const QString &outputPath, int format,
                            bool overwrite);

} // namespace decoder
